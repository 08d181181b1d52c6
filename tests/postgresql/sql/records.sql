-- Why a result is NULL: the component's records as messages of the server.

\set bad_key 'not a key'
SELECT create_asymmetric_priv_key('DSA', 2048) IS NULL AS no_message_by_default;

SET client_min_messages = log;
SELECT create_asymmetric_priv_key('DSA', 2048);
SELECT create_asymmetric_priv_key('rsa', 1024);
SELECT create_asymmetric_priv_key('rsa', 0);
SELECT create_asymmetric_priv_key('rsa', -5);
SELECT create_asymmetric_priv_key('rsa', 8192);
SELECT create_asymmetric_pub_key('RSA', :'bad_key');
SELECT asymmetric_encrypt('RSA ', 'data', :'public_key');
SELECT asymmetric_encrypt('RSA', 'data', :'bad_key');
SELECT asymmetric_encrypt('RSA', 'data', :'private_key');
SELECT asymmetric_encrypt('RSA', repeat('x', 214), :'public_key') IS NULL AS too_long;
SELECT asymmetric_encrypt('RSA', repeat('x', 215), :'public_key') IS NULL AS too_long;
SELECT asymmetric_encrypt('RSA', '', :'public_key');
SELECT asymmetric_decrypt('RSA', repeat('x', 256)::bytea, :'private_key');
SELECT asymmetric_decrypt('RSA', repeat('x', 256)::bytea, :'public_key');
SELECT asymmetric_sign('RSA', 'data', :'public_key', 'SHA256');
SELECT asymmetric_sign('RSA', 'data', :'private_key', 'SHA1');
SELECT asymmetric_verify('RSA', 'data', repeat('x', 256)::bytea, :'public_key', 'SHA256');
SELECT asymmetric_verify('RSA', 'data', '', :'private_key', 'SHA256');

\echo -- What a user passed is quoted as text of the database, whatever it was.
SELECT create_asymmetric_priv_key(E'\u00fcber', 2048);
SELECT create_asymmetric_priv_key(E'two\nlines', 2048);
SELECT create_digest('SHA1', 'abc') IS NULL AS an_unknown_digest_is_no_record;
