-- Users who may have things signed, and never see the key. Run it with
--
--   ./run --postgresql examples/postgresql/signing_service.sql
--
-- Functions that take or make private keys are given to nobody at first. Their owner offers a
-- function of his own that uses his key.

\set QUIET on
\set ON_ERROR_STOP off
\pset footer off
\pset null NULL

CREATE ROLE key_keeper;
CREATE ROLE clerk;
GRANT CREATE ON SCHEMA public TO key_keeper;
GRANT EXECUTE ON FUNCTION create_asymmetric_priv_key(text, bigint), create_asymmetric_pub_key(text, text),
  asymmetric_sign(text, text, text, text) TO key_keeper;

SET ROLE key_keeper;
CREATE TABLE signing_key (private_key text NOT NULL, public_key text NOT NULL);
INSERT INTO signing_key
  SELECT private_key, create_asymmetric_pub_key('RSA', private_key)
  FROM (SELECT create_asymmetric_priv_key('RSA', 2048) AS private_key OFFSET 0) AS made;
CREATE FUNCTION sign_letter(letter text) RETURNS bytea
  LANGUAGE sql SECURITY DEFINER SET search_path = public, pg_temp
  RETURN (SELECT asymmetric_sign('RSA', letter, private_key, 'SHA256') FROM signing_key);
CREATE FUNCTION is_signed(letter text, signature bytea) RETURNS boolean
  LANGUAGE sql SECURITY DEFINER SET search_path = public, pg_temp
  RETURN (SELECT asymmetric_verify('RSA', letter, signature, public_key, 'SHA256') = 1 IS TRUE FROM signing_key);
REVOKE EXECUTE ON FUNCTION sign_letter(text) FROM PUBLIC;
GRANT EXECUTE ON FUNCTION sign_letter(text) TO clerk;

\echo The clerk has a letter signed:
SET ROLE clerk;
SELECT is_signed('Dear customer', sign_letter('Dear customer')) AS signed,
       is_signed('Dear stranger', sign_letter('Dear customer')) AS other_letter;

\echo The clerk reaches neither the key nor the functions that use keys:
SELECT private_key FROM signing_key;
SELECT asymmetric_sign('RSA', 'Dear customer', 'a key', 'SHA256');
SELECT create_asymmetric_priv_key('RSA', 2048);
