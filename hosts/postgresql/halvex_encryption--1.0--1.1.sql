-- From 1.0 to 1.1. A new installation runs this script after that of 1.0.

\echo Use "ALTER EXTENSION halvex_encryption UPDATE TO '1.1'" to load this file. \quit

-- A ciphertext is never text: with this overload, drivers that declare no types had their hexadecimal
-- digits decrypted.
DROP FUNCTION asymmetric_decrypt(text, text, text);

-- Not IMMUTABLE: postgres_fdw sends calls of IMMUTABLE functions to other servers, with the private
-- key among the parameters, which that server's log shows.
ALTER FUNCTION create_asymmetric_pub_key(text, text) STABLE;

-- What a call with a 2048-bit key takes with OpenSSL 3.0, in units of a simple operator, measured side by
-- side. Newer libraries read keys faster, but the order is the same.
ALTER FUNCTION create_asymmetric_priv_key(text, bigint) COST 25000000;
ALTER FUNCTION create_asymmetric_pub_key(text, text) COST 25000;
ALTER FUNCTION asymmetric_encrypt(text, text, text) COST 25000;
ALTER FUNCTION asymmetric_encrypt(text, bytea, text) COST 25000;
ALTER FUNCTION asymmetric_decrypt(text, bytea, text) COST 200000;
ALTER FUNCTION asymmetric_sign(text, text, text, text) COST 200000;
ALTER FUNCTION asymmetric_sign(text, bytea, text, text) COST 200000;
ALTER FUNCTION asymmetric_verify(text, text, bytea, text, text) COST 25000;
ALTER FUNCTION asymmetric_verify(text, bytea, bytea, text, text) COST 25000;
ALTER FUNCTION create_digest(text, text) COST 150;
ALTER FUNCTION create_digest(text, bytea) COST 150;

COMMENT ON FUNCTION create_asymmetric_priv_key(text, bigint) IS
  'A new RSA private key of so many bits as unencrypted PEM, or NULL';
COMMENT ON FUNCTION create_asymmetric_pub_key(text, text) IS
  'The public key that belongs to a private key, as PEM, or NULL';
COMMENT ON FUNCTION asymmetric_encrypt(text, text, text) IS
  'RSA ciphertext (OAEP) of the text in the database''s encoding, or NULL; another one at every call';
COMMENT ON FUNCTION asymmetric_encrypt(text, bytea, text) IS
  'RSA ciphertext (OAEP) of the bytes, or NULL; another one at every call';
COMMENT ON FUNCTION asymmetric_decrypt(text, bytea, text) IS
  'What was encrypted with asymmetric_encrypt, or NULL; convert_from(..., ''UTF8'') makes text of it';
COMMENT ON FUNCTION asymmetric_sign(text, text, text, text) IS
  'RSA signature (PSS) of the text in the database''s encoding, or NULL; another one at every call';
COMMENT ON FUNCTION asymmetric_sign(text, bytea, text, text) IS
  'RSA signature (PSS) of the bytes, or NULL; another one at every call';
COMMENT ON FUNCTION asymmetric_verify(text, text, bytea, text, text) IS
  '1 if the signature belongs to the text, else NULL, never 0: write asymmetric_verify(...) = 1 IS TRUE';
COMMENT ON FUNCTION asymmetric_verify(text, bytea, bytea, text, text) IS
  '1 if the signature belongs to the bytes, else NULL, never 0: write asymmetric_verify(...) = 1 IS TRUE';
COMMENT ON FUNCTION create_digest(text, text) IS
  'SHA-2 or SHA-3 digest of the text in the database''s encoding, or NULL';
COMMENT ON FUNCTION create_digest(text, bytea) IS
  'SHA-2 or SHA-3 digest of the bytes, or NULL';

-- What a bug report needs. The file name is for those who may see the server's settings.
CREATE FUNCTION halvex_encryption_versions(OUT name text, OUT value text) RETURNS SETOF record
  AS 'MODULE_PATHNAME', 'halvex_encryption_versions'
  LANGUAGE C VOLATILE PARALLEL SAFE ROWS 7;
COMMENT ON FUNCTION halvex_encryption_versions() IS
  'Versions of the extension, the server and OpenSSL, and the component''s file';
REVOKE EXECUTE ON FUNCTION halvex_encryption_versions() FROM PUBLIC;
GRANT EXECUTE ON FUNCTION halvex_encryption_versions() TO pg_read_all_settings;

-- Fails now, and not at the first use, if the component cannot be loaded.
SELECT create_digest('SHA256'::text, ''::bytea);
