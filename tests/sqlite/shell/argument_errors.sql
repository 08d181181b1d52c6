-- Wrong numbers and types of arguments are errors of the statement, in the component's words.
-- exit status: 1

SELECT count(*) FROM pragma_function_list WHERE name = 'create_digest';
.load halvex_sqlite
SELECT create_asymmetric_priv_key();
SELECT create_asymmetric_priv_key(1, '2048');
SELECT create_asymmetric_priv_key('RSA', '2048');
SELECT create_asymmetric_priv_key('RSA', 2048.5);
SELECT create_asymmetric_pub_key('RSA', 1);
SELECT asymmetric_encrypt('RSA', 1, 'key');
SELECT asymmetric_encrypt('RSA', 'data', 2);
SELECT asymmetric_decrypt('RSA', 1.5, 'key');
SELECT asymmetric_decrypt('RSA', x'00', 2);
SELECT asymmetric_sign('RSA', 1, 'key', 'SHA256');
SELECT asymmetric_sign('RSA', 'data', 2, 'SHA256');
SELECT asymmetric_sign('RSA', 'data', 'key', 3);
SELECT asymmetric_verify('RSA', 'data', 'signature', 'key');
SELECT asymmetric_verify('RSA', 1, 'signature', 'key', 'SHA256');
SELECT asymmetric_verify('RSA', 'data', 2, 'key', 'SHA256');
SELECT asymmetric_verify('RSA', 'data', 'signature', 3, 'SHA256');
SELECT asymmetric_verify('RSA', 'data', 'signature', 'key', 4);
SELECT create_digest(256, 'text');
SELECT create_digest('SHA256', 1);
SELECT create_digest('SHA256', 'a', 'b');
SELECT 'The log has ' || count(*) || ' records.' FROM dovrin_error_log;
