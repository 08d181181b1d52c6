-- The server's own types keep most wrong calls away from the component.
SELECT create_digest('SHA256');
SELECT create_digest(256, 'abc');
SELECT asymmetric_decrypt('RSA', 'data'::text, 'key');
SELECT create_asymmetric_priv_key('RSA', 2048.5);
SELECT create_asymmetric_priv_key('RSA', 'many');
SELECT create_asymmetric_priv_key('RSA', '2048'::text);
SELECT asymmetric_verify('RSA', 'message', 1, 'key', 'SHA256');

-- Other declarations of the same C functions.
DO $$
DECLARE
  declared record;
BEGIN
  FOR declared IN SELECT * FROM (VALUES
    ('priv_key(text)', 'text', 'halvex_create_asymmetric_priv_key'),
    ('priv_key(bigint, bigint)', 'text', 'halvex_create_asymmetric_priv_key'),
    ('priv_key(text, text)', 'text', 'halvex_create_asymmetric_priv_key'),
    ('priv_key(text, float8)', 'text', 'halvex_create_asymmetric_priv_key'),
    ('priv_key(text, integer)', 'text', 'halvex_create_asymmetric_priv_key'),
    ('pub_key(text, bigint)', 'text', 'halvex_create_asymmetric_pub_key'),
    ('encrypt(text, bigint, text)', 'bytea', 'halvex_asymmetric_encrypt'),
    ('encrypt(text, text, bigint)', 'bytea', 'halvex_asymmetric_encrypt'),
    ('decrypt(text, bigint, text)', 'bytea', 'halvex_asymmetric_decrypt'),
    ('decrypt(text, text, bigint)', 'bytea', 'halvex_asymmetric_decrypt'),
    ('sign(text, bigint, text, text)', 'bytea', 'halvex_asymmetric_sign'),
    ('sign(text, text, bigint, text)', 'bytea', 'halvex_asymmetric_sign'),
    ('sign(text, text, text, bigint)', 'bytea', 'halvex_asymmetric_sign'),
    ('verify(text, text, bytea, text)', 'bigint', 'halvex_asymmetric_verify'),
    ('verify(text, bigint, bytea, text, text)', 'bigint', 'halvex_asymmetric_verify'),
    ('verify(text, text, bigint, text, text)', 'bigint', 'halvex_asymmetric_verify'),
    ('verify(text, text, bytea, bigint, text)', 'bigint', 'halvex_asymmetric_verify'),
    ('verify(text, text, bytea, text, bigint)', 'bigint', 'halvex_asymmetric_verify'),
    ('digest(bigint, text)', 'bytea', 'halvex_create_digest'),
    ('digest(text, bigint)', 'bytea', 'halvex_create_digest'),
    ('digest()', 'bytea', 'halvex_create_digest'),
    ('digest(text, date)', 'bytea', 'halvex_create_digest'),
    ('digest_as_number(text, text)', 'bigint', 'halvex_create_digest'),
    ('digest_as_text(text, text)', 'text', 'halvex_create_digest'),
    ('verify_as_text(text, text, bytea, text, text)', 'text', 'halvex_asymmetric_verify')
  ) AS declarations (signature, result, symbol) LOOP
    EXECUTE format('CREATE FUNCTION %s RETURNS %s AS ''$libdir/halvex_encryption'', %L LANGUAGE C',
                   declared.signature, declared.result, declared.symbol);
  END LOOP;
END $$;

\echo -- Calls through other declarations are rejected by the component, with its own texts.
SELECT priv_key('RSA');
SELECT priv_key(1, 2048::bigint);
SELECT priv_key('RSA'::text, '2048'::text);
SELECT priv_key('RSA', 2048::float8);
SELECT priv_key('RSA', NULL::float8);
SELECT length(priv_key('RSA', 2048)) > 1600 AS made;
SELECT pub_key('RSA', 1);
SELECT encrypt('RSA', 1, 'key');
SELECT encrypt('RSA', 'data', 1);
SELECT decrypt('RSA', 1, 'key');
SELECT decrypt('RSA', 'data', 1);
SELECT sign('RSA', 1, 'key', 'SHA256');
SELECT sign('RSA', 'data', 1, 'SHA256');
SELECT sign('RSA', 'data', 'key', 1);
SELECT verify('RSA', 'data', '', 'key');
SELECT verify('RSA', 1, '', 'key', 'SHA256');
SELECT verify('RSA', 'data', 1, 'key', 'SHA256');
SELECT verify('RSA', 'data', '', 1, 'SHA256');
SELECT verify('RSA', 'data', '', 'key', 1);
SELECT digest(1, 'abc');
SELECT digest('SHA256', 1);
SELECT digest();

\echo -- Types that no component knows, and results that do not fit, are rejected before any call.
SELECT digest('SHA256', '2026-01-31'::date);
SELECT digest_as_number('SHA256', 'abc');
SELECT digest_as_text('SHA256', 'abc');
SELECT verify_as_text('RSA', 'data', '', 'key', 'SHA256');

\echo -- A rejected call ends its statement and nothing else.
BEGIN;
SAVEPOINT before;
SELECT digest('SHA256', 1);
ROLLBACK TO before;
SELECT create_digest('SHA256', 'abc');
COMMIT;
