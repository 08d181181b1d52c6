-- A tour of the seven functions in PostgreSQL. Run it with
--
--   ./run --postgresql examples/postgresql/tour.sql
--
-- Keys, ciphertexts and signatures differ from run to run, so the tour shows their sizes and what
-- they do.

\set QUIET on
\pset footer off
\pset null NULL

\echo 1. A digest: the raw bytes, which psql shows in hexadecimal.
SELECT create_digest('SHA256', 'abc') AS sha256;

\echo 2. A private key, and the public key that belongs to it, as PEM text in psql variables.
SELECT create_asymmetric_priv_key('RSA', 2048) AS private_key \gset
SELECT create_asymmetric_pub_key('RSA', :'private_key') AS public_key \gset
SELECT left(:'private_key', 27) AS private_key, left(:'public_key', 26) AS public_key;

\echo 3. Encrypt with the public key, decrypt with the private key. Decryption gives bytea, because
\echo '   anything can have been encrypted; convert_from makes text of it.'
CREATE TEMP TABLE message AS
  SELECT asymmetric_encrypt('RSA', 'Meet me at noon', :'public_key') AS ciphertext;
SELECT pg_typeof(ciphertext) AS type, length(ciphertext) AS bytes,
       convert_from(asymmetric_decrypt('RSA', ciphertext, :'private_key'), 'UTF8') AS decrypted
FROM message;

\echo 4. Sign with the private key, verify with the public key: 1 if the signature is good, else NULL.
CREATE TEMP TABLE contract AS
  SELECT 'I owe you 10' AS content,
         asymmetric_sign('RSA', 'I owe you 10', :'private_key', 'SHA256') AS signature;
SELECT length(signature) AS bytes,
       asymmetric_verify('RSA', content, signature, :'public_key', 'SHA256') AS as_signed,
       asymmetric_verify('RSA', 'I owe you 1000', signature, :'public_key', 'SHA256') AS altered
FROM contract;

\echo 5. The two settings.
SELECT name, setting FROM pg_settings WHERE name LIKE 'component_halvex_encryption.%' ORDER BY name;

\echo 6. A call that cannot do its work gives NULL, and the server log states the reason. This shows it here too:
SET client_min_messages = log;
SELECT create_asymmetric_priv_key('RSA', 1024) AS short_key;
