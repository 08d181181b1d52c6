-- The seven functions of component_halvex_encryption.
--
-- None is STRICT: a NULL reaches the function, which reports it in the server log and returns NULL.
-- A result is NULL on every failure; `SET client_min_messages = log` shows why.
-- Costs are what one call takes with a 2048-bit key, in units of a simple operator.

\echo Use "CREATE EXTENSION halvex_encryption" to load this file. \quit

-- A new RSA private key of `key_length` bits as unencrypted PEM.
CREATE FUNCTION create_asymmetric_priv_key(algorithm text, key_length bigint) RETURNS text
  AS 'MODULE_PATHNAME', 'halvex_create_asymmetric_priv_key'
  LANGUAGE C VOLATILE PARALLEL SAFE COST 4000000;

-- The public key that belongs to a private key, as PEM.
CREATE FUNCTION create_asymmetric_pub_key(algorithm text, private_key text) RETURNS text
  AS 'MODULE_PATHNAME', 'halvex_create_asymmetric_pub_key'
  LANGUAGE C IMMUTABLE PARALLEL SAFE COST 10000;

-- Every call gives another ciphertext.
CREATE FUNCTION asymmetric_encrypt(algorithm text, data text, public_key text) RETURNS bytea
  AS 'MODULE_PATHNAME', 'halvex_asymmetric_encrypt'
  LANGUAGE C VOLATILE PARALLEL SAFE COST 8000;
CREATE FUNCTION asymmetric_encrypt(algorithm text, data bytea, public_key text) RETURNS bytea
  AS 'MODULE_PATHNAME', 'halvex_asymmetric_encrypt'
  LANGUAGE C VOLATILE PARALLEL SAFE COST 8000;

-- STABLE, since rsa_support_legacy_padding changes what is accepted.
CREATE FUNCTION asymmetric_decrypt(algorithm text, data text, private_key text) RETURNS bytea
  AS 'MODULE_PATHNAME', 'halvex_asymmetric_decrypt'
  LANGUAGE C STABLE PARALLEL SAFE COST 30000;
CREATE FUNCTION asymmetric_decrypt(algorithm text, data bytea, private_key text) RETURNS bytea
  AS 'MODULE_PATHNAME', 'halvex_asymmetric_decrypt'
  LANGUAGE C STABLE PARALLEL SAFE COST 30000;

-- Every call gives another signature.
CREATE FUNCTION asymmetric_sign(algorithm text, content text, private_key text, digest_type text)
  RETURNS bytea
  AS 'MODULE_PATHNAME', 'halvex_asymmetric_sign'
  LANGUAGE C VOLATILE PARALLEL SAFE COST 30000;
CREATE FUNCTION asymmetric_sign(algorithm text, content bytea, private_key text, digest_type text)
  RETURNS bytea
  AS 'MODULE_PATHNAME', 'halvex_asymmetric_sign'
  LANGUAGE C VOLATILE PARALLEL SAFE COST 30000;

-- 1, or NULL: never 0. STABLE, since rsa_support_legacy_padding changes what is accepted.
CREATE FUNCTION asymmetric_verify(algorithm text, content text, signature bytea, public_key text,
                                  digest_type text) RETURNS bigint
  AS 'MODULE_PATHNAME', 'halvex_asymmetric_verify'
  LANGUAGE C STABLE PARALLEL SAFE COST 8000;
CREATE FUNCTION asymmetric_verify(algorithm text, content bytea, signature bytea, public_key text,
                                  digest_type text) RETURNS bigint
  AS 'MODULE_PATHNAME', 'halvex_asymmetric_verify'
  LANGUAGE C STABLE PARALLEL SAFE COST 8000;

CREATE FUNCTION create_digest(digest_type text, data text) RETURNS bytea
  AS 'MODULE_PATHNAME', 'halvex_create_digest'
  LANGUAGE C IMMUTABLE PARALLEL SAFE COST 20;
CREATE FUNCTION create_digest(digest_type text, data bytea) RETURNS bytea
  AS 'MODULE_PATHNAME', 'halvex_create_digest'
  LANGUAGE C IMMUTABLE PARALLEL SAFE COST 20;

-- Who may make or use private keys is for the administrator to say.
REVOKE EXECUTE ON FUNCTION
  create_asymmetric_priv_key(text, bigint),
  create_asymmetric_pub_key(text, text),
  asymmetric_decrypt(text, text, text),
  asymmetric_decrypt(text, bytea, text),
  asymmetric_sign(text, text, text, text),
  asymmetric_sign(text, bytea, text, text)
  FROM PUBLIC;
