-- Encryption and decryption with keys of the fixtures.

SELECT count(*) FROM pragma_function_list WHERE name = 'asymmetric_encrypt';
.load halvex_sqlite
.nullvalue NULL
.parameter init
INSERT INTO temp.sqlite_parameters VALUES
  ('@private', CAST(readfile('rsa2048.pem') AS TEXT)),
  ('@public', CAST(readfile('rsa2048-public.pem') AS TEXT)),
  ('@other', CAST(readfile('rsa2048-other.pem') AS TEXT));

.print -- there and back: 1 to 214 bytes fit a key of 2048 bits
WITH RECURSIVE sizes (size) AS (SELECT 1 UNION ALL SELECT size + 71 FROM sizes WHERE size < 214)
SELECT size, asymmetric_decrypt('RSA', asymmetric_encrypt('RSA', zeroblob(size), @public), @private) = zeroblob(size)
FROM sizes;
SELECT asymmetric_encrypt('RSA', zeroblob(215), @public);

.print -- text comes back as bytes
SELECT typeof(plain), CAST(plain AS TEXT)
FROM (SELECT asymmetric_decrypt('RSA', asymmetric_encrypt('RSA', 'naïve café', @public), @private) AS plain);

.print -- the wrong key
SELECT asymmetric_decrypt('RSA', asymmetric_encrypt('RSA', 'text', @public), @other);

.print -- two encryptions of one text differ
SELECT asymmetric_encrypt('RSA', 'text', @public) = asymmetric_encrypt('RSA', 'text', @public);

SELECT code, priority, function FROM dovrin_error_log;
