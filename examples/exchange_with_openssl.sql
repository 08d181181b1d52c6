-- The SQL side of examples/exchange_with_openssl, which runs this script in a folder of its own and
-- removes it afterwards.

.headers off
.mode list
.separator ': '

.print 'Digests'
.shell printf 'The quick brown fox' > text
.shell for name in sha224 sha256 sha384 sha512 sha3-224 sha3-384 sha3-512; do openssl dgst -$name -binary -out $name.digest text; done
WITH names (name) AS (VALUES ('sha224'), ('sha256'), ('sha384'), ('sha512'), ('sha3-224'), ('sha3-384'), ('sha3-512'))
SELECT name, iif(create_digest(name, readfile('text')) = readfile(name || '.digest'), 'the same', 'DIFFERENT')
FROM names;

.print
.print 'A key made by openssl'
.shell openssl genpkey -quiet -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out theirs.pem 2>openssl.log
.shell openssl pkey -in theirs.pem -pubout -out theirs.pub.pem
SELECT 'public key derived in SQL and by openssl',
       iif(create_asymmetric_pub_key('RSA', readfile('theirs.pem')) = CAST(readfile('theirs.pub.pem') AS TEXT),
           'the same', 'DIFFERENT');

.print
.print 'A key made in SQL'
