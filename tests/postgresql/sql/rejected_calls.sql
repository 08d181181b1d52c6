-- The server's own types keep most wrong calls away from the component.
SELECT create_digest('SHA256');
SELECT create_digest(256, 'abc');
SELECT asymmetric_decrypt('RSA', 'data'::text, 'key');
SELECT create_asymmetric_priv_key('RSA', 2048.5);
SELECT create_asymmetric_priv_key('RSA', 'many');
SELECT create_asymmetric_priv_key('RSA', '2048'::text);
SELECT asymmetric_verify('RSA', 'message', 1, 'key', 'SHA256');

-- Calls through other declarations are rejected by the component, with its own texts.
CREATE FUNCTION priv_key(text) RETURNS text
  AS '$libdir/halvex_encryption', 'halvex_create_asymmetric_priv_key' LANGUAGE C;
CREATE FUNCTION priv_key(bigint, bigint) RETURNS text
  AS '$libdir/halvex_encryption', 'halvex_create_asymmetric_priv_key' LANGUAGE C;
CREATE FUNCTION priv_key(text, text) RETURNS text
  AS '$libdir/halvex_encryption', 'halvex_create_asymmetric_priv_key' LANGUAGE C;
CREATE FUNCTION priv_key(text, float8) RETURNS text
  AS '$libdir/halvex_encryption', 'halvex_create_asymmetric_priv_key' LANGUAGE C;
CREATE FUNCTION priv_key(text, integer) RETURNS text
  AS '$libdir/halvex_encryption', 'halvex_create_asymmetric_priv_key' LANGUAGE C;
SELECT priv_key('RSA');
SELECT priv_key(1, 2048::bigint);
SELECT priv_key('RSA'::text, '2048'::text);
SELECT priv_key('RSA', 2048::float8);
SELECT priv_key('RSA', NULL::float8);
SELECT length(priv_key('RSA', 2048)) > 1600 AS made;

CREATE FUNCTION pub_key(text, bigint) RETURNS text
  AS '$libdir/halvex_encryption', 'halvex_create_asymmetric_pub_key' LANGUAGE C;
SELECT pub_key('RSA', 1);
CREATE FUNCTION encrypt(text, bigint, text) RETURNS bytea
  AS '$libdir/halvex_encryption', 'halvex_asymmetric_encrypt' LANGUAGE C;
CREATE FUNCTION encrypt(text, text, bigint) RETURNS bytea
  AS '$libdir/halvex_encryption', 'halvex_asymmetric_encrypt' LANGUAGE C;
SELECT encrypt('RSA', 1, 'key');
SELECT encrypt('RSA', 'data', 1);
CREATE FUNCTION decrypt(text, bigint, text) RETURNS bytea
  AS '$libdir/halvex_encryption', 'halvex_asymmetric_decrypt' LANGUAGE C;
CREATE FUNCTION decrypt(text, text, bigint) RETURNS bytea
  AS '$libdir/halvex_encryption', 'halvex_asymmetric_decrypt' LANGUAGE C;
SELECT decrypt('RSA', 1, 'key');
SELECT decrypt('RSA', 'data', 1);
CREATE FUNCTION sign(text, bigint, text, text) RETURNS bytea
  AS '$libdir/halvex_encryption', 'halvex_asymmetric_sign' LANGUAGE C;
CREATE FUNCTION sign(text, text, bigint, text) RETURNS bytea
  AS '$libdir/halvex_encryption', 'halvex_asymmetric_sign' LANGUAGE C;
CREATE FUNCTION sign(text, text, text, bigint) RETURNS bytea
  AS '$libdir/halvex_encryption', 'halvex_asymmetric_sign' LANGUAGE C;
SELECT sign('RSA', 1, 'key', 'SHA256');
SELECT sign('RSA', 'data', 1, 'SHA256');
SELECT sign('RSA', 'data', 'key', 1);
CREATE FUNCTION verify(text, text, bytea, text) RETURNS bigint
  AS '$libdir/halvex_encryption', 'halvex_asymmetric_verify' LANGUAGE C;
CREATE FUNCTION verify(text, bigint, bytea, text, text) RETURNS bigint
  AS '$libdir/halvex_encryption', 'halvex_asymmetric_verify' LANGUAGE C;
CREATE FUNCTION verify(text, text, bigint, text, text) RETURNS bigint
  AS '$libdir/halvex_encryption', 'halvex_asymmetric_verify' LANGUAGE C;
CREATE FUNCTION verify(text, text, bytea, bigint, text) RETURNS bigint
  AS '$libdir/halvex_encryption', 'halvex_asymmetric_verify' LANGUAGE C;
CREATE FUNCTION verify(text, text, bytea, text, bigint) RETURNS bigint
  AS '$libdir/halvex_encryption', 'halvex_asymmetric_verify' LANGUAGE C;
SELECT verify('RSA', 'data', '', 'key');
SELECT verify('RSA', 1, '', 'key', 'SHA256');
SELECT verify('RSA', 'data', 1, 'key', 'SHA256');
SELECT verify('RSA', 'data', '', 1, 'SHA256');
SELECT verify('RSA', 'data', '', 'key', 1);
CREATE FUNCTION digest(bigint, text) RETURNS bytea
  AS '$libdir/halvex_encryption', 'halvex_create_digest' LANGUAGE C;
CREATE FUNCTION digest(text, bigint) RETURNS bytea
  AS '$libdir/halvex_encryption', 'halvex_create_digest' LANGUAGE C;
CREATE FUNCTION digest() RETURNS bytea
  AS '$libdir/halvex_encryption', 'halvex_create_digest' LANGUAGE C;
SELECT digest(1, 'abc');
SELECT digest('SHA256', 1);
SELECT digest();

-- Types that no component knows, and results that do not fit, are rejected before any call.
CREATE FUNCTION digest(text, date) RETURNS bytea
  AS '$libdir/halvex_encryption', 'halvex_create_digest' LANGUAGE C;
CREATE FUNCTION digest_as_number(text, text) RETURNS bigint
  AS '$libdir/halvex_encryption', 'halvex_create_digest' LANGUAGE C;
CREATE FUNCTION digest_as_text(text, text) RETURNS text
  AS '$libdir/halvex_encryption', 'halvex_create_digest' LANGUAGE C;
CREATE FUNCTION verify_as_text(text, text, bytea, text, text) RETURNS text
  AS '$libdir/halvex_encryption', 'halvex_asymmetric_verify' LANGUAGE C;
SELECT digest('SHA256', '2026-01-31'::date);
SELECT digest_as_number('SHA256', 'abc');
SELECT digest_as_text('SHA256', 'abc');
SELECT verify_as_text('RSA', 'data', '', 'key', 'SHA256');

-- A rejected call ends its statement and nothing else.
BEGIN;
SAVEPOINT before;
SELECT digest('SHA256', 1);
ROLLBACK TO before;
SELECT create_digest('SHA256', 'abc');
COMMIT;
