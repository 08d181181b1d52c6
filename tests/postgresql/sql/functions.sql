-- What the seven functions give for valid arguments, by type of argument and result.

SELECT pg_typeof(create_asymmetric_priv_key('RSA', 2048)) AS priv_key,
       pg_typeof(create_asymmetric_pub_key('RSA', :'private_key')) AS pub_key,
       pg_typeof(asymmetric_encrypt('RSA', 'data', :'public_key')) AS encrypt,
       pg_typeof(asymmetric_decrypt('RSA', 'data', :'private_key')) AS decrypt,
       pg_typeof(asymmetric_sign('RSA', 'data', :'private_key', 'SHA256')) AS sign,
       pg_typeof(asymmetric_verify('RSA', 'data', '', :'public_key', 'SHA256')) AS verify,
       pg_typeof(create_digest('SHA256', 'data')) AS digest;

\echo -- Digests of text and of bytes; every name, in any letter case.
SELECT name, create_digest(name, 'abc') AS digest
  FROM unnest(ARRAY['SHA224', 'SHA256', 'SHA384', 'SHA512', 'SHA3-224', 'SHA3-256', 'SHA3-384',
                    'SHA3-512', 'sha256', 'Sha3-512']) WITH ORDINALITY AS names(name, number)
  ORDER BY number;
SELECT create_digest('SHA256', 'abc'::text) = create_digest('SHA256', '\x616263'::bytea) AS same,
       create_digest('SHA256', 'abc'::varchar) = create_digest('SHA256', 'abc') AS same_varchar,
       create_digest('SHA256', '') AS of_nothing,
       create_digest('SHA256', '\x00ff00'::bytea) AS of_any_bytes;
SELECT name, create_digest(name, 'abc') IS NULL AS unknown
  FROM unnest(ARRAY['SHA-256', 'SHA1', 'MD5', 'SHA3_512', '']) AS name;

\echo -- Values that the server keeps compressed or elsewhere are whole again when they arrive.
CREATE TABLE large (kind text, content text);
ALTER TABLE large ALTER content SET STORAGE EXTENDED;
INSERT INTO large VALUES ('compressed', repeat('a', 1000000)),
  ('small', 'a'), ('empty', ''),
  ('random', (SELECT string_agg(md5(n::text), '') FROM generate_series(1, 20000) AS n));
SELECT kind, pg_column_size(content) < length(content) AS compressed,
       create_digest('SHA256', content) = sha256(convert_to(content, 'UTF8')) AS right_digest
  FROM large ORDER BY kind;

\echo -- There and back, for text and bytes.
SELECT convert_from(asymmetric_decrypt('RSA', asymmetric_encrypt('RSA', 'Grüße', :'public_key'),
                                       :'private_key'), 'UTF8') AS text,
       asymmetric_decrypt('rsa', asymmetric_encrypt('rsa', '\x00fe00'::bytea, :'public_key'),
                          :'private_key') AS bytes,
       length(asymmetric_encrypt('RSA', 'data', :'public_key')) AS ciphertext_length;
SELECT asymmetric_encrypt('RSA', 'data', :'public_key')
       = asymmetric_encrypt('RSA', 'data', :'public_key') AS same_ciphertext_twice;

SELECT length(signature) AS signature_length,
       asymmetric_verify('RSA', 'message', signature, :'public_key', 'SHA384') AS as_text,
       asymmetric_verify('RSA', 'message'::bytea, signature, :'public_key', 'sha384') AS as_bytes,
       asymmetric_verify('RSA', 'Message', signature, :'public_key', 'SHA384') AS other_message,
       asymmetric_verify('RSA', 'message', signature, :'public_key', 'SHA512') AS other_digest
  FROM (SELECT asymmetric_sign('RSA', 'message', :'private_key', 'SHA384') AS signature
        OFFSET 0) AS signed;
SELECT asymmetric_verify('RSA', 'm', asymmetric_sign('RSA', 'm'::bytea, :'private_key', 'SHA3-256'),
                         :'public_key', 'SHA3-224') AS sha3_256_is_sha3_224;

\echo -- Keys.
SELECT create_asymmetric_pub_key('RSA', :'private_key') = :'public_key' || E'\n' AS right_public_key;
SELECT left(key, 28) AS first_line, key LIKE E'%\n-----END PRIVATE KEY-----\n' AS ends,
       asymmetric_verify('RSA', 'm', asymmetric_sign('RSA', 'm', key, 'SHA256'),
                         create_asymmetric_pub_key('RSA', key), 'SHA256') AS works
  FROM (SELECT create_asymmetric_priv_key('RSA', 2048) AS key OFFSET 0) AS made;
\echo -- A smaller integer type will do; each row gets a key of its own.
SELECT count(DISTINCT create_asymmetric_priv_key('RSA', bits)) AS keys
  FROM unnest(ARRAY[2048, 2048]::smallint[]) AS bits;

\echo -- No matter where they are called from.
PREPARE digest_of (text) AS SELECT create_digest('SHA256', $1);
EXECUTE digest_of ('abc');
EXECUTE digest_of ('abd');
DO $$
DECLARE
  digest bytea := '';
BEGIN
  FOR n IN 1..1000 LOOP
    digest := create_digest('SHA512', digest);
  END LOOP;
  RAISE NOTICE 'a thousand times: %', digest;
END
$$;
SELECT n, (SELECT create_digest('SHA256', n::text)) = sha256(n::text::bytea) AS right_digest
  FROM generate_series(1, 3) AS n;
