-- The two settings: reading them, setting them, and what they change. Run it with
--
--   ./run examples/system_variables.sql
--
-- A setting holds for the whole process, all its connections included, until it ends.

.headers on
.mode column
.nullvalue NULL

.print 'Every setting with its limits:'
.print
SELECT name, type, value, default_value, minimum, maximum, block_size FROM dovrin_variables ORDER BY name;

.print
.print 'maximum_rsa_key_size bounds the keys that can be created:'
.print
UPDATE dovrin_variables SET value = 2048
WHERE name = 'component_halvex_encryption.maximum_rsa_key_size';
SELECT create_asymmetric_priv_key('RSA', 2048) IS NOT NULL AS made_2048,
       create_asymmetric_priv_key('RSA', 3072) IS NOT NULL AS made_3072;

.print
.print 'A value that is not allowed is an error and changes nothing. OR IGNORE lets the script go on:'
.print
UPDATE OR IGNORE dovrin_variables SET value = 3000
WHERE name = 'component_halvex_encryption.maximum_rsa_key_size';
SELECT value FROM dovrin_variables WHERE name = 'component_halvex_encryption.maximum_rsa_key_size';

.print
.print 'rsa_support_legacy_padding lets decryption and verification fall back to the PKCS#1 v1.5'
.print 'padding of older programs. Beware: with the setting on and a SHA-2 digest type, a signature'
.print 'that does not match is accepted as well, so switch it on only to read old data:'
.print
.parameter set @private "create_asymmetric_priv_key('RSA', 2048)"
INSERT INTO temp.sqlite_parameters VALUES ('@public', create_asymmetric_pub_key('RSA', @private));
INSERT INTO temp.sqlite_parameters
  VALUES ('@signature', asymmetric_sign('RSA', 'I owe you 10', @private, 'SHA256'));
UPDATE dovrin_variables SET value = 'ON'
WHERE name = 'component_halvex_encryption.rsa_support_legacy_padding';
SELECT value, asymmetric_verify('RSA', 'I owe you 1000', @signature, @public, 'SHA256') AS altered_verifies
FROM dovrin_variables WHERE name = 'component_halvex_encryption.rsa_support_legacy_padding';
UPDATE dovrin_variables SET value = default_value;
SELECT value, asymmetric_verify('RSA', 'I owe you 1000', @signature, @public, 'SHA256') AS altered_verifies
FROM dovrin_variables WHERE name = 'component_halvex_encryption.rsa_support_legacy_padding';
