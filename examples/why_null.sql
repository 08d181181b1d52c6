-- Every way to get NULL, with the records of the error log that explain it. Run it with
--
--   ./run examples/why_null.sql
--
-- Two codes do not appear: 13922 takes a key generation that fails in OpenSSL, and 13929 a result
-- that is too long for its buffer, which no key that may be created has.

.parameter set @private "create_asymmetric_priv_key('RSA', 2048)"
INSERT INTO temp.sqlite_parameters VALUES ('@public', create_asymmetric_pub_key('RSA', @private));
.parameter set @other_private "create_asymmetric_priv_key('RSA', 2048)"
INSERT INTO temp.sqlite_parameters VALUES ('@ciphertext', asymmetric_encrypt('RSA', 'secret', @public));
INSERT INTO temp.sqlite_parameters VALUES ('@signature', asymmetric_sign('RSA', 'text', @private, 'SHA256'));

-- A table takes the result of every call; `why` shows the last result with the records that the call
-- left in the error log.
CREATE TEMP TABLE result (id INTEGER PRIMARY KEY, value, last_record INTEGER);
INSERT INTO result (last_record) SELECT ifnull(max(id), 0) FROM dovrin_error_log;
CREATE TEMP TRIGGER remember_last_record AFTER INSERT ON result BEGIN
  UPDATE result SET last_record = (SELECT ifnull(max(id), 0) FROM dovrin_error_log) WHERE id = new.id;
END;
CREATE TEMP VIEW why AS
  SELECT '  gives ' || quote(value) FROM result WHERE id = (SELECT max(id) FROM result)
  UNION ALL
  SELECT printf('  %s %d: %s', priority, code, message) || char(10) || '    ' || hint FROM (
    SELECT * FROM dovrin_error_log
    WHERE id > (SELECT last_record FROM result ORDER BY id DESC LIMIT 1 OFFSET 1) ORDER BY id);

.print
.print "An argument is NULL"
.print

.print "create_asymmetric_priv_key('RSA', NULL)"
INSERT INTO result (value) VALUES (create_asymmetric_priv_key('RSA', NULL));
SELECT * FROM why;

.print "create_asymmetric_pub_key('RSA', NULL)"
INSERT INTO result (value) VALUES (create_asymmetric_pub_key('RSA', NULL));
SELECT * FROM why;

.print "asymmetric_encrypt('RSA', NULL, @public)"
INSERT INTO result (value) VALUES (asymmetric_encrypt('RSA', NULL, @public));
SELECT * FROM why;

.print "asymmetric_decrypt('RSA', @ciphertext, NULL)"
INSERT INTO result (value) VALUES (asymmetric_decrypt('RSA', @ciphertext, NULL));
SELECT * FROM why;

.print "asymmetric_sign(NULL, 'text', @private, 'SHA256')"
INSERT INTO result (value) VALUES (asymmetric_sign(NULL, 'text', @private, 'SHA256'));
SELECT * FROM why;

.print "asymmetric_verify('RSA', 'text', @signature, @public, NULL)"
INSERT INTO result (value) VALUES (asymmetric_verify('RSA', 'text', @signature, @public, NULL));
SELECT * FROM why;

.print "create_digest('SHA256', NULL)"
INSERT INTO result (value) VALUES (create_digest('SHA256', NULL));
SELECT * FROM why;

.print
.print "The algorithm is not RSA"
.print

.print "create_asymmetric_priv_key('DSA', 2048)"
INSERT INTO result (value) VALUES (create_asymmetric_priv_key('DSA', 2048));
SELECT * FROM why;

.print "create_asymmetric_pub_key('', @private)"
INSERT INTO result (value) VALUES (create_asymmetric_pub_key('', @private));
SELECT * FROM why;

.print "asymmetric_encrypt('RSA ', 'text', @public)"
INSERT INTO result (value) VALUES (asymmetric_encrypt('RSA ', 'text', @public));
SELECT * FROM why;

.print "asymmetric_decrypt('RS', @ciphertext, @private)"
INSERT INTO result (value) VALUES (asymmetric_decrypt('RS', @ciphertext, @private));
SELECT * FROM why;

.print "asymmetric_sign('EC', 'text', @private, 'SHA256')"
INSERT INTO result (value) VALUES (asymmetric_sign('EC', 'text', @private, 'SHA256'));
SELECT * FROM why;

.print "asymmetric_verify('EC', 'text', @signature, @public, 'SHA256')"
INSERT INTO result (value) VALUES (asymmetric_verify('EC', 'text', @signature, @public, 'SHA256'));
SELECT * FROM why;

.print
.print "The key length is out of range"
.print

.print "create_asymmetric_priv_key('RSA', 1024)"
INSERT INTO result (value) VALUES (create_asymmetric_priv_key('RSA', 1024));
SELECT * FROM why;

.print "create_asymmetric_priv_key('RSA', 8192)"
INSERT INTO result (value) VALUES (create_asymmetric_priv_key('RSA', 8192));
SELECT * FROM why;

.print
.print "The key cannot be read"
.print

.print "create_asymmetric_pub_key('RSA', 'no key')"
INSERT INTO result (value) VALUES (create_asymmetric_pub_key('RSA', 'no key'));
SELECT * FROM why;

.print "asymmetric_encrypt('RSA', 'text', 'no key')"
INSERT INTO result (value) VALUES (asymmetric_encrypt('RSA', 'text', 'no key'));
SELECT * FROM why;

.print "asymmetric_decrypt('RSA', @ciphertext, 'no key')"
INSERT INTO result (value) VALUES (asymmetric_decrypt('RSA', @ciphertext, 'no key'));
SELECT * FROM why;

.print "asymmetric_sign('RSA', 'text', 'no key', 'SHA256')"
INSERT INTO result (value) VALUES (asymmetric_sign('RSA', 'text', 'no key', 'SHA256'));
SELECT * FROM why;

.print "asymmetric_verify('RSA', 'text', @signature, 'no key', 'SHA256')"
INSERT INTO result (value) VALUES (asymmetric_verify('RSA', 'text', @signature, 'no key', 'SHA256'));
SELECT * FROM why;

.print
.print "The key is of the other kind"
.print

.print "create_asymmetric_pub_key('RSA', @public)"
INSERT INTO result (value) VALUES (create_asymmetric_pub_key('RSA', @public));
SELECT * FROM why;

.print "asymmetric_encrypt('RSA', 'text', @private)"
INSERT INTO result (value) VALUES (asymmetric_encrypt('RSA', 'text', @private));
SELECT * FROM why;

.print "asymmetric_decrypt('RSA', @ciphertext, @public)"
INSERT INTO result (value) VALUES (asymmetric_decrypt('RSA', @ciphertext, @public));
SELECT * FROM why;

.print "asymmetric_sign('RSA', 'text', @public, 'SHA256')"
INSERT INTO result (value) VALUES (asymmetric_sign('RSA', 'text', @public, 'SHA256'));
SELECT * FROM why;

.print "asymmetric_verify('RSA', 'text', @signature, @private, 'SHA256')"
INSERT INTO result (value) VALUES (asymmetric_verify('RSA', 'text', @signature, @private, 'SHA256'));
SELECT * FROM why;

.print
.print "The data does not fit"
.print

.print "asymmetric_encrypt('RSA', '', @public)"
INSERT INTO result (value) VALUES (asymmetric_encrypt('RSA', '', @public));
SELECT * FROM why;

.print "asymmetric_encrypt('RSA', hex(zeroblob(200)), @public)"
INSERT INTO result (value) VALUES (asymmetric_encrypt('RSA', hex(zeroblob(200)), @public));
SELECT * FROM why;

.print "asymmetric_decrypt('RSA', 'not encrypted', @private)"
INSERT INTO result (value) VALUES (asymmetric_decrypt('RSA', 'not encrypted', @private));
SELECT * FROM why;

.print "asymmetric_decrypt('RSA', @ciphertext, @other_private)"
INSERT INTO result (value) VALUES (asymmetric_decrypt('RSA', @ciphertext, @other_private));
SELECT * FROM why;

.print "asymmetric_sign('RSA', '', @private, 'SHA256')"
INSERT INTO result (value) VALUES (asymmetric_sign('RSA', '', @private, 'SHA256'));
SELECT * FROM why;

.print "asymmetric_verify('RSA', '', @signature, @public, 'SHA256')"
INSERT INTO result (value) VALUES (asymmetric_verify('RSA', '', @signature, @public, 'SHA256'));
SELECT * FROM why;

.print
.print "The digest type is unknown; create_digest and asymmetric_verify then leave no record"
.print

.print "create_digest('SHA-256', 'text')"
INSERT INTO result (value) VALUES (create_digest('SHA-256', 'text'));
SELECT * FROM why;

.print "asymmetric_sign('RSA', 'text', @private, 'MD5')"
INSERT INTO result (value) VALUES (asymmetric_sign('RSA', 'text', @private, 'MD5'));
SELECT * FROM why;

.print "asymmetric_verify('RSA', 'text', @signature, @public, 'MD5')"
INSERT INTO result (value) VALUES (asymmetric_verify('RSA', 'text', @signature, @public, 'MD5'));
SELECT * FROM why;

.print
.print "The signature does not match"
.print

.print "asymmetric_verify('RSA', 'other text', @signature, @public, 'SHA256')"
INSERT INTO result (value) VALUES (asymmetric_verify('RSA', 'other text', @signature, @public, 'SHA256'));
SELECT * FROM why;

.print "asymmetric_verify('RSA', 'text', @signature, @public, 'SHA512')"
INSERT INTO result (value) VALUES (asymmetric_verify('RSA', 'text', @signature, @public, 'SHA512'));
SELECT * FROM why;

.print "asymmetric_verify('RSA', 'text', '', @public, 'SHA256')"
INSERT INTO result (value) VALUES (asymmetric_verify('RSA', 'text', '', @public, 'SHA256'));
SELECT * FROM why;
