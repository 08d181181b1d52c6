-- The two system variables.
-- exit status: 1

SELECT count(*) FROM pragma_module_list WHERE name = 'dovrin_variables';
.load halvex_sqlite
.nullvalue NULL
SELECT * FROM dovrin_variables;
UPDATE dovrin_variables SET value = 8192 WHERE name = 'component_halvex_encryption.maximum_rsa_key_size';
UPDATE dovrin_variables SET value = 'on' WHERE name = 'component_halvex_encryption.rsa_support_legacy_padding';
SELECT name, value FROM dovrin_variables;
UPDATE dovrin_variables SET value = 4294971392 WHERE name = 'component_halvex_encryption.maximum_rsa_key_size';
SELECT value FROM dovrin_variables WHERE minimum = 2048;
UPDATE dovrin_variables SET value = 3000 WHERE name = 'component_halvex_encryption.maximum_rsa_key_size';
UPDATE dovrin_variables SET value = 'sometimes' WHERE name = 'component_halvex_encryption.rsa_support_legacy_padding';
DELETE FROM dovrin_variables;
SELECT name, value FROM dovrin_variables;
