-- Signatures over rows of a table.

SELECT count(*) FROM pragma_function_list WHERE name = 'asymmetric_sign';
.load halvex_sqlite
.nullvalue NULL
.parameter init
INSERT INTO temp.sqlite_parameters VALUES
  ('@private', CAST(readfile('rsa2048.pem') AS TEXT)),
  ('@public', CAST(readfile('rsa2048-public.pem') AS TEXT)),
  ('@other', CAST(readfile('rsa2048-other-public.pem') AS TEXT));

CREATE TABLE document (id INTEGER PRIMARY KEY, body, digest_type TEXT, signature BLOB);
INSERT INTO document (body, digest_type) VALUES
  ('first', 'SHA224'), ('second', 'sha256'), (x'00FF', 'SHA384'), ('fourth', 'SHA512'),
  ('fifth', 'SHA3-256'), ('sixth', 'sha3-512'), ('', 'SHA256'), (NULL, 'SHA256'), ('ninth', 'MD5');
UPDATE document SET signature = asymmetric_sign('RSA', body, @private, digest_type);

.print -- signature length, verified, verified with another digest type and with another key
SELECT id, length(signature), asymmetric_verify('RSA', body, signature, @public, digest_type),
       asymmetric_verify('RSA', body, signature, @public, 'SHA3-384'),
       asymmetric_verify('RSA', body, signature, @other, digest_type)
FROM document ORDER BY id;

.print -- why three of them have none
SELECT code, message FROM dovrin_error_log WHERE function = 'sign' ORDER BY id;
