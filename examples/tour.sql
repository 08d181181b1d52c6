-- A tour of the seven functions. Run it with
--
--   ./run examples/tour.sql
--
-- Keys, ciphertexts and signatures differ from run to run, so the tour shows their sizes and what
-- they do.

.headers on
.mode list

.print '1. A digest: the raw bytes, shown in hexadecimal.'
.print
SELECT hex(create_digest('SHA256', 'abc')) AS sha256;

.mode column
.print
.print '2. A private key, and the public key that belongs to it, as PEM text in user variables.'
.print
.parameter set @private "create_asymmetric_priv_key('RSA', 2048)"
INSERT INTO temp.sqlite_parameters VALUES ('@public', create_asymmetric_pub_key('RSA', @private));
SELECT substr(@private, 1, 27) AS private_key, typeof(@private) AS type
UNION ALL
SELECT substr(@public, 1, 26), typeof(@public);

.print
.print '3. Encrypt with the public key, decrypt with the private key. Decryption gives a BLOB, because'
.print '   anything can have been encrypted; CAST makes text of it.'
.print
CREATE TEMP TABLE message AS
  SELECT 'Meet me at noon' AS plain,
         asymmetric_encrypt('RSA', 'Meet me at noon', @public) AS ciphertext;
SELECT typeof(ciphertext) AS type, length(ciphertext) AS bytes,
       CAST(asymmetric_decrypt('RSA', ciphertext, @private) AS TEXT) AS decrypted
FROM message;

.print
.print '4. Sign with the private key, verify with the public key: 1 if the signature is good, else NULL.'
.print
CREATE TEMP TABLE contract AS
  SELECT 'I owe you 10' AS content, asymmetric_sign('RSA', 'I owe you 10', @private, 'SHA256') AS signature;
SELECT length(signature) AS bytes,
       asymmetric_verify('RSA', content, signature, @public, 'SHA256') AS as_signed,
       ifnull(asymmetric_verify('RSA', 'I owe you 1000', signature, @public, 'SHA256'), 'NULL') AS altered
FROM contract;

.print
.print '5. The two settings.'
.print
SELECT name, value FROM dovrin_variables ORDER BY name;

.print
.print '6. A call that cannot do its work gives NULL, and the error log states the reason.'
.print
SELECT ifnull(create_asymmetric_priv_key('RSA', 1024), 'NULL') AS short_key;
.print
.mode list
.headers off
SELECT message || char(10) || hint FROM dovrin_error_log ORDER BY id DESC LIMIT 1;
