-- SQL and the openssl command use each other's digests, keys, ciphertexts and signatures. Run it with
--
--   examples/exchange_with_openssl
--
-- which starts this script in a private folder and removes the folder afterwards.

CREATE TABLE place (
  is_private CONSTRAINT "start examples/exchange_with_openssl, which has a safe place for keys" CHECK (is_private)
);
INSERT INTO place SELECT readfile('private_folder') IS NOT NULL;

.headers off
.mode list
.separator ': '

-- Compares what SQL and openssl gave.
CREATE TABLE comparison (subject TEXT, in_sql, by_openssl);
CREATE VIEW outcome AS
  SELECT subject, iif(in_sql = by_openssl, 'the same', 'DIFFERENT') FROM comparison ORDER BY rowid;

.print 'Digests'
.shell printf '%s' 'Meet me at noon' > text
.shell for name in sha224 sha256 sha384 sha512 sha3-224 sha3-384 sha3-512; do openssl dgst -$name -binary -out $name.digest text; done
INSERT INTO comparison
  WITH names (name) AS (VALUES ('sha224'), ('sha256'), ('sha384'), ('sha512'),
                               ('sha3-224'), ('sha3-384'), ('sha3-512'))
  SELECT name, create_digest(name, readfile('text')), readfile(name || '.digest') FROM names;
SELECT * FROM outcome;
DELETE FROM comparison;

.print
.print 'A key made by openssl, another one made in SQL'
.shell openssl genpkey -quiet -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out openssl.pem
.shell openssl pkey -in openssl.pem -pubout -out openssl.pub.pem
SELECT 'sql.pem', iif(writefile('sql.pem', create_asymmetric_priv_key('RSA', 2048)) > 0, 'written', 'FAILED');
SELECT 'sql.pub.pem',
       iif(writefile('sql.pub.pem', create_asymmetric_pub_key('RSA', readfile('sql.pem'))) > 0, 'written', 'FAILED');
.shell openssl pkey -in sql.pem -check -noout
.shell openssl pkey -in sql.pem -pubout -out sql.pub.by_openssl.pem
INSERT INTO comparison VALUES
  ('public key of openssl.pem',
   create_asymmetric_pub_key('RSA', readfile('openssl.pem')), CAST(readfile('openssl.pub.pem') AS TEXT)),
  ('public key of sql.pem',
   CAST(readfile('sql.pub.pem') AS TEXT), CAST(readfile('sql.pub.by_openssl.pem') AS TEXT));
SELECT * FROM outcome;
DELETE FROM comparison;

.print
.print 'Encrypted by openssl, decrypted in SQL'
.shell for key in openssl sql; do openssl pkeyutl -encrypt -pubin -inkey $key.pub.pem -pkeyopt rsa_padding_mode:oaep -in text -out by_openssl.$key.encrypted; done
SELECT 'with the key ' || name,
       CAST(asymmetric_decrypt('RSA', readfile('by_openssl.' || name || '.encrypted'), readfile(name || '.pem')) AS TEXT)
FROM (SELECT 'openssl' AS name UNION ALL SELECT 'sql');

.print
.print 'Encrypted in SQL, decrypted by openssl'
SELECT 'with the key ' || name,
       writefile('in_sql.' || name || '.encrypted',
                 asymmetric_encrypt('RSA', 'Meet me at noon', readfile(name || '.pub.pem'))) || ' bytes'
FROM (SELECT 'openssl' AS name UNION ALL SELECT 'sql');
.shell for key in openssl sql; do openssl pkeyutl -decrypt -inkey $key.pem -pkeyopt rsa_padding_mode:oaep -in in_sql.$key.encrypted; echo; done

.print
.print 'Signed by openssl, verified in SQL'
.shell for key in openssl sql; do openssl dgst -sha256 -sigopt rsa_padding_mode:pss -sign $key.pem -out by_openssl.$key.signature text; done
SELECT 'with the key ' || name,
       ifnull(asymmetric_verify('RSA', readfile('text'), readfile('by_openssl.' || name || '.signature'),
                                readfile(name || '.pub.pem'), 'SHA256'), 'NULL')
FROM (SELECT 'openssl' AS name UNION ALL SELECT 'sql');

.print
.print 'Signed in SQL, verified by openssl'
SELECT 'with the key ' || name,
       writefile('in_sql.' || name || '.signature',
                 asymmetric_sign('RSA', readfile('text'), readfile(name || '.pem'), 'SHA512')) || ' bytes'
FROM (SELECT 'openssl' AS name UNION ALL SELECT 'sql');
.shell for key in openssl sql; do openssl dgst -sha512 -sigopt rsa_padding_mode:pss -verify $key.pub.pem -signature in_sql.$key.signature text; done

.print
.print 'Encrypted by an older program with PKCS#1 v1.5 padding, read with the legacy setting on'
.shell openssl pkeyutl -encrypt -pubin -inkey sql.pub.pem -pkeyopt rsa_padding_mode:pkcs1 -in text -out old.encrypted
SELECT 'off', ifnull(asymmetric_decrypt('RSA', readfile('old.encrypted'), readfile('sql.pem')), 'NULL');
UPDATE dovrin_variables SET value = 'ON'
WHERE name = 'component_halvex_encryption.rsa_support_legacy_padding';
SELECT 'on', CAST(asymmetric_decrypt('RSA', readfile('old.encrypted'), readfile('sql.pem')) AS TEXT);
