-- asymmetric_verify gives NULL for a forgery, and NULL is not false: where the server asks "is it false?"
-- a forgery passes, where it asks "is it true?" it does not.

CREATE TABLE genuine AS
  SELECT 'message' AS content, asymmetric_sign('RSA', 'message', :'private_key', 'SHA256') AS signature;
CREATE FUNCTION check_signature(content text, signature bytea) RETURNS bigint LANGUAGE sql AS
  $$ SELECT asymmetric_verify('RSA', $1, $2, current_setting('test.public_key'), 'SHA256') $$;
SELECT set_config('test.public_key', :'public_key', false) \g /dev/null
SET client_min_messages = warning;
SELECT check_signature('message', signature) AS genuine, check_signature('forgery', signature) AS forged FROM genuine;

\echo -- Wrong: each of these accepts the forgery.
CREATE TABLE accepts_forgeries (content text, signature bytea,
  CHECK (asymmetric_verify('RSA', content, signature, current_setting('test.public_key'), 'SHA256') = 1));
INSERT INTO accepts_forgeries SELECT 'forgery', signature FROM genuine;
SELECT content FROM accepts_forgeries;
DO $$
BEGIN
  IF check_signature('forgery', (SELECT signature FROM genuine)) <> 1 THEN
    RAISE EXCEPTION 'forged';
  END IF;
END
$$;
SELECT count(*) AS forgeries_found FROM genuine WHERE check_signature('forgery', signature) <> 1;
SELECT count(*) AS forgeries_found FROM genuine WHERE NOT check_signature('forgery', signature) = 1;

\echo -- Right: IS TRUE and IS DISTINCT FROM know NULL.
CREATE TABLE rejects_forgeries (content text, signature bytea,
  CHECK (asymmetric_verify('RSA', content, signature, current_setting('test.public_key'), 'SHA256') = 1 IS TRUE));
INSERT INTO rejects_forgeries SELECT content, signature FROM genuine;
\set VERBOSITY terse
INSERT INTO rejects_forgeries SELECT 'forgery', signature FROM genuine;
\set VERBOSITY default
SELECT content FROM rejects_forgeries;
DO $$
BEGIN
  IF check_signature('forgery', (SELECT signature FROM genuine)) IS DISTINCT FROM 1 THEN
    RAISE EXCEPTION 'forged';
  END IF;
END
$$;
SELECT count(*) AS forgeries_found FROM genuine WHERE check_signature('forgery', signature) IS DISTINCT FROM 1;
SELECT count(*) AS genuine_found FROM genuine WHERE check_signature('message', signature) = 1;

\echo -- Data of type char(n) lose their trailing blanks on the way: the signature is that of the shorter text.
SELECT create_digest('SHA256', 'abc   '::char(6)) = create_digest('SHA256', 'abc') AS blanks_lost;

\echo -- Nothing is encrypted or signed of empty data; its digest exists.
SELECT asymmetric_encrypt('RSA', '', :'public_key') IS NULL AS encrypt,
       asymmetric_sign('RSA', '', :'private_key', 'SHA256') IS NULL AS sign,
       create_digest('SHA256', '') IS NULL AS digest;

\echo -- With a setting of one transaction only its own statements report to the client.
BEGIN;
SET LOCAL client_min_messages = log;
SELECT create_asymmetric_priv_key('DSA', 2048);
COMMIT;
SELECT create_asymmetric_priv_key('DSA', 2048);
