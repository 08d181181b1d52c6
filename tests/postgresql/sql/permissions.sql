-- Functions that take or make private keys are for those who were given them.

CREATE ROLE somebody;
SET ROLE somebody;
SELECT length(create_digest('SHA256', 'abc')) AS digest,
       length(asymmetric_encrypt('RSA', 'data', :'public_key')) AS encrypt,
       asymmetric_verify('RSA', 'data', '', :'public_key', 'SHA256') AS verify;
SELECT create_asymmetric_priv_key('RSA', 2048);
SELECT create_asymmetric_pub_key('RSA', 'key');
SELECT asymmetric_decrypt('RSA', 'data'::bytea, 'key');
SELECT asymmetric_sign('RSA', 'data'::text, 'key', 'SHA256');
SELECT asymmetric_sign('RSA', 'data'::bytea, 'key', 'SHA256');

RESET ROLE;
GRANT EXECUTE ON FUNCTION asymmetric_sign(text, text, text, text) TO somebody;
SET ROLE somebody;
SELECT length(asymmetric_sign('RSA', 'data', :'private_key', 'SHA256')) AS sign;
SELECT asymmetric_sign('RSA', 'data'::bytea, 'key', 'SHA256');

\echo -- Signing without seeing the key: a function of its owner.
RESET ROLE;
REVOKE EXECUTE ON FUNCTION asymmetric_sign(text, text, text, text) FROM somebody;
CREATE TABLE signing_key (private_key text);
INSERT INTO signing_key VALUES (:'private_key');
CREATE FUNCTION sign_for_me(content text) RETURNS bytea LANGUAGE sql SECURITY DEFINER
  SET search_path = public, pg_temp
  AS 'SELECT asymmetric_sign(''RSA'', content, private_key, ''SHA256'') FROM signing_key';
SET ROLE somebody;
SELECT private_key FROM signing_key;
SELECT asymmetric_verify('RSA', 'data', sign_for_me('data'), :'public_key', 'SHA256') AS signed;
