-- Statements that end before their time, or in a way of their own.

-- A server may compile every expression, if it finds the library for that.
SET jit = on;
SET jit_above_cost = 0;

CREATE TABLE payloads AS SELECT n AS id, 'payload ' || n AS content FROM generate_series(1, 50) AS n;

-- Cancelled: by itself, half way through its rows, and by a timeout.
SELECT create_digest('SHA256', content), pg_cancel_backend(pg_backend_pid()) FROM payloads WHERE id < 5;
SELECT create_digest('SHA256', content), create_digest('SHA999', content),
       CASE WHEN id = 20 THEN pg_cancel_backend(pg_backend_pid()) END FROM payloads;
SET statement_timeout = '50ms';
SELECT asymmetric_sign('RSA', p.content, :'private_key', 'SHA256') FROM payloads AS p, payloads AS q;
RESET statement_timeout;

-- An error half way, alone, in a subtransaction, in PL/pgSQL, and below an open cursor.
SELECT create_digest('SHA256', (1 / (id - 30))::text) FROM payloads;
BEGIN;
SAVEPOINT before_error;
SELECT create_digest('SHA256', (1 / (id - 30))::text) FROM payloads;
ROLLBACK TO before_error;
DECLARE some_rows CURSOR FOR SELECT create_digest('SHA256', (1 / (id - 30))::text) FROM payloads;
FETCH 3 FROM some_rows;
FETCH 50 FROM some_rows;
ROLLBACK;
DO 'BEGIN FOR n IN 1..20 LOOP BEGIN
       PERFORM create_digest(''SHA256'', (1 / (id - n - 1))::text) FROM payloads;
     EXCEPTION WHEN division_by_zero THEN NULL; END; END LOOP; END';

-- Rejected by the adapter.
SELECT asymmetric_encrypt('RSA', 'x', repeat('-----BEGIN PUBLIC KEY-----', 1000));
SELECT asymmetric_encrypt('RSA', 'x', repeat('k', 16384)) IS NULL AS longest_key;
SELECT asymmetric_encrypt('RSA', 'x', repeat('k', 16385)) IS NULL AS longer_key;
CREATE FUNCTION wrong_result(text, text) RETURNS bigint LANGUAGE C
  AS '$libdir/halvex_encryption', 'halvex_create_digest';
SELECT wrong_result('SHA256', content) FROM payloads;
CREATE FUNCTION wrong_argument(text, date) RETURNS bytea LANGUAGE C
  AS '$libdir/halvex_encryption', 'halvex_create_digest';
SELECT wrong_argument('SHA256', '2026-01-01') FROM payloads;
CREATE FUNCTION one_argument(text) RETURNS bytea LANGUAGE C
  AS '$libdir/halvex_encryption', 'halvex_create_digest';
SELECT one_argument(content) FROM payloads;

-- Records with text that the client's encoding lacks, and none at all in the log.
SET client_min_messages = log;
SET client_encoding = LATIN1;
SELECT asymmetric_encrypt(chr(26085) || repeat(chr(233), 100), 'x', 'y');
SET client_encoding = SQL_ASCII;
SELECT create_asymmetric_pub_key(repeat(chr(233), 8000), 'y');
RESET client_encoding;
SET halvex_encryption.record_level = debug1;
SELECT asymmetric_decrypt('RSA', NULL, 'y');
