-- A NULL argument gives NULL and one record; none of the functions is skipped for it. By default the
-- client sees no message, with client_min_messages = log it sees the record.

SELECT create_digest(NULL, 'abc') IS NULL AS digest,
       create_asymmetric_priv_key('RSA', NULL) IS NULL AS key;

SET client_min_messages = log;
SELECT create_asymmetric_priv_key(NULL, 2048);
SELECT create_asymmetric_priv_key('RSA', NULL);
SELECT create_asymmetric_pub_key(NULL, :'private_key');
SELECT create_asymmetric_pub_key('RSA', NULL);
SELECT asymmetric_encrypt('RSA', NULL, :'public_key');
SELECT asymmetric_encrypt('RSA', 'data', NULL);
SELECT asymmetric_decrypt(NULL, 'data', :'private_key');
SELECT asymmetric_decrypt('RSA', NULL::bytea, :'private_key');
SELECT asymmetric_decrypt('RSA', 'data', NULL);
SELECT asymmetric_sign('RSA', NULL, :'private_key', 'SHA256');
SELECT asymmetric_sign('RSA', 'data', NULL, 'SHA256');
SELECT asymmetric_sign('RSA', 'data', :'private_key', NULL);
SELECT asymmetric_verify('RSA', NULL, '', :'public_key', 'SHA256');
SELECT asymmetric_verify('RSA', 'data', NULL, :'public_key', 'SHA256');
SELECT asymmetric_verify('RSA', 'data', '', NULL, 'SHA256');
SELECT asymmetric_verify('RSA', 'data', '', :'public_key', NULL);
SELECT create_digest(NULL, 'abc');
SELECT create_digest('SHA256', NULL);
SELECT create_digest('SHA256', NULL::bytea);

\echo -- In a table: one record per row that has a NULL, and the other rows have values.
SELECT n, create_digest('SHA256', CASE WHEN n <> 2 THEN n::text END) IS NULL AS is_null
  FROM generate_series(1, 3) AS n;
