-- A NULL result loses text and lets forgeries in, unless a constraint stops it. Run it with
--
--   ./run examples/null_safe.sql

-- Newer shells switch it off; constraints may then call create_digest alone.
PRAGMA trusted_schema = ON;

.nullvalue NULL
.mode list
.parameter set @private "create_asymmetric_priv_key('RSA', 2048)"
INSERT INTO temp.sqlite_parameters VALUES ('@public', create_asymmetric_pub_key('RSA', @private));

CREATE TEMP TABLE letters (content TEXT, signature BLOB);
INSERT INTO letters VALUES ('pay 10', asymmetric_sign('RSA', 'pay 10', @private, 'SHA256')),
                           ('pay 1000', asymmetric_sign('RSA', 'pay 10', @private, 'SHA256'));

.print 'CHECK (... = 1) takes the forgery too, because NULL is not false; IS 1 does not:'
CREATE TABLE careless (
  content TEXT, signature BLOB, public_key TEXT,
  CHECK (asymmetric_verify('RSA', content, signature, public_key, 'SHA256') = 1)
);
CREATE TABLE careful (
  content TEXT, signature BLOB, public_key TEXT,
  CHECK (asymmetric_verify('RSA', content, signature, public_key, 'SHA256') IS 1)
);
INSERT OR IGNORE INTO careless SELECT content, signature, @public FROM letters;
INSERT OR IGNORE INTO careful SELECT content, signature, @public FROM letters;
SELECT 'careless: ' || group_concat(content, ', ') FROM careless;
SELECT 'careful:  ' || group_concat(content, ', ') FROM careful;

.print
.print 'An UPDATE that encrypts in place loses what cannot be encrypted:'
CREATE TABLE careless_notes (note);
INSERT INTO careless_notes VALUES ('short'), (hex(zeroblob(200)));
UPDATE careless_notes SET note = asymmetric_encrypt('RSA', note, @public);
SELECT count(*) || ' notes, ' || count(note) || ' left' FROM careless_notes;

.print
.print 'With a constraint such an UPDATE fails as a whole; OR IGNORE skips what cannot be encrypted:'
CREATE TABLE notes (note TEXT, encrypted BLOB, CHECK (note IS NOT NULL OR encrypted IS NOT NULL));
INSERT INTO notes (note) SELECT 'short' UNION ALL SELECT hex(zeroblob(200));
UPDATE OR IGNORE notes SET encrypted = asymmetric_encrypt('RSA', note, @public), note = NULL WHERE encrypted IS NULL;
SELECT count(*) || ' notes, ' || count(encrypted) || ' encrypted, ' || count(note) || ' left as they were' FROM notes;
SELECT 'decrypted: ' || CAST(asymmetric_decrypt('RSA', encrypted, @private) AS TEXT) FROM notes WHERE encrypted IS NOT NULL;

.print
.print 'Failures of this process, by code:'
SELECT code || ' ' || symbol || ' in ' || function || ': ' || count(*) FROM dovrin_error_log
GROUP BY code, symbol, function ORDER BY code;
