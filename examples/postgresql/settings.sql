-- The two settings: the longest key that may be made, and the legacy padding. Run it with
--
--   ./run --postgresql examples/postgresql/settings.sql
--
-- They are the server's: a superuser changes them with ALTER SYSTEM, and a reload brings the change
-- to every session.

\set QUIET on
\set ON_ERROR_STOP off
\pset footer off
\pset null NULL
SET client_min_messages = log;

\echo Keys of 3072 bits are within the limit of 4096:
SHOW component_halvex_encryption.maximum_rsa_key_size;
SELECT create_asymmetric_priv_key('RSA', 3072) IS NOT NULL AS made;

\echo With a smaller limit they are not:
ALTER SYSTEM SET component_halvex_encryption.maximum_rsa_key_size = 2048;
SELECT pg_reload_conf() AS reloaded;
-- The server takes a moment to pass it on.
SELECT pg_sleep(1) \g /dev/null
SELECT create_asymmetric_priv_key('RSA', 3072) IS NOT NULL AS made;

\echo What is not a multiple of 1024 from 2048 to 16384 is rejected:
ALTER SYSTEM SET component_halvex_encryption.maximum_rsa_key_size = 3000;
ALTER SYSTEM SET component_halvex_encryption.maximum_rsa_key_size = 32768;

\echo So is a change for one session:
SET component_halvex_encryption.maximum_rsa_key_size = 8192;

\echo The legacy padding does not come silently:
ALTER SYSTEM SET component_halvex_encryption.rsa_support_legacy_padding = on;
ALTER SYSTEM SET component_halvex_encryption.rsa_support_legacy_padding = off;
