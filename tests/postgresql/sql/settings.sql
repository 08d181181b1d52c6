-- The component's variables as settings of the server.

\x on
SELECT name, setting, unit, category, short_desc, extra_desc, context, vartype, min_val, max_val, enumvals, boot_val,
       reset_val, source
  FROM pg_settings WHERE name LIKE '%halvex_encryption.%' ORDER BY name;
\x off

\echo -- They belong to the server, not to a session.
SET component_halvex_encryption.maximum_rsa_key_size = 8192;
SET component_halvex_encryption.rsa_support_legacy_padding = on;
SET LOCAL component_halvex_encryption.maximum_rsa_key_size = 8192;
ALTER DATABASE halvex SET component_halvex_encryption.maximum_rsa_key_size = 8192;
ALTER ROLE postgres SET component_halvex_encryption.rsa_support_legacy_padding = on;
CREATE FUNCTION f() RETURNS void LANGUAGE sql
  SET component_halvex_encryption.rsa_support_legacy_padding = on AS '';

\echo -- Multiples of 1024 from 2048 to 16384.
ALTER SYSTEM SET component_halvex_encryption.maximum_rsa_key_size = 1024;
ALTER SYSTEM SET component_halvex_encryption.maximum_rsa_key_size = 2047;
ALTER SYSTEM SET component_halvex_encryption.maximum_rsa_key_size = 3000;
ALTER SYSTEM SET component_halvex_encryption.maximum_rsa_key_size = 16383;
ALTER SYSTEM SET component_halvex_encryption.maximum_rsa_key_size = 16385;
ALTER SYSTEM SET component_halvex_encryption.maximum_rsa_key_size = 17408;
ALTER SYSTEM SET component_halvex_encryption.maximum_rsa_key_size = 0;
ALTER SYSTEM SET component_halvex_encryption.maximum_rsa_key_size = -2048;
ALTER SYSTEM SET component_halvex_encryption.maximum_rsa_key_size = 'many';
\echo -- 4096 and 2 to the 32nd power: beyond what a setting of this server can be.
ALTER SYSTEM SET component_halvex_encryption.maximum_rsa_key_size = 4294971392;
ALTER SYSTEM SET component_halvex_encryption.rsa_support_legacy_padding = 'maybe';
ALTER SYSTEM SET component_halvex_encryption.no_such_setting = 1;
SET component_halvex_encryption.no_such_setting = 1;

ALTER SYSTEM SET component_halvex_encryption.maximum_rsa_key_size = 2048;
ALTER SYSTEM SET component_halvex_encryption.maximum_rsa_key_size = 3072;
ALTER SYSTEM SET component_halvex_encryption.maximum_rsa_key_size = 16384;
ALTER SYSTEM SET component_halvex_encryption.rsa_support_legacy_padding = off;
\echo -- Until a reload nothing has changed.
SHOW component_halvex_encryption.maximum_rsa_key_size;

\echo -- The level of the records is for the administrator too.
SET halvex_encryption.record_level = debug1;
SHOW halvex_encryption.record_level;
SET halvex_encryption.record_level = error;
RESET halvex_encryption.record_level;
SET halvex_encryption.no_such_setting = 1;

\echo -- Only for who may change the server.
CREATE ROLE somebody;
SET ROLE somebody;
SHOW component_halvex_encryption.maximum_rsa_key_size;
ALTER SYSTEM SET component_halvex_encryption.maximum_rsa_key_size = 2048;
SET halvex_encryption.record_level = debug1;
RESET ROLE;
GRANT SET ON PARAMETER halvex_encryption.record_level TO somebody;
SET ROLE somebody;
SET halvex_encryption.record_level = debug1;
SHOW halvex_encryption.record_level;
