-- A table whose payloads are digested, signed and verified in SQL. Run it with
--
--   ./run examples/table_of_payloads.sql             in memory
--   ./run examples/table_of_payloads.sql orders.db   and keep the table
--
-- 2000 rows; signing takes a few milliseconds a row.

.headers on
.mode column
.nullvalue NULL

.parameter set @private "create_asymmetric_priv_key('RSA', 2048)"
INSERT INTO temp.sqlite_parameters VALUES ('@public', create_asymmetric_pub_key('RSA', @private));

-- create_digest gives the same digest for the same text, so it may stand in a generated column and
-- in an index.
CREATE TABLE orders (
  id INTEGER PRIMARY KEY,
  payload TEXT NOT NULL,
  signature BLOB,
  digest BLOB AS (create_digest('SHA256', payload)) STORED
);
CREATE INDEX orders_by_digest ON orders (digest);

.print 'Write and sign the orders:'
.print
BEGIN;
INSERT INTO orders (id, payload)
  WITH RECURSIVE numbers (n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM numbers WHERE n < 2000)
  SELECT n, printf('{"order": %d, "article": "A-%03d", "pieces": %d}', n, n % 250, 1 + n % 7)
  FROM numbers;
UPDATE orders SET signature = asymmetric_sign('RSA', payload, @private, 'SHA256');
COMMIT;
SELECT count(*) AS orders, count(signature) AS signed, count(DISTINCT digest) AS digests,
       min(length(signature)) AS shortest, max(length(signature)) AS longest
FROM orders;

.print
.print 'Find an order by the digest of its text:'
.print
SELECT id, payload FROM orders
WHERE digest = create_digest('SHA256', '{"order": 1234, "article": "A-234", "pieces": 3}');

.print
.print 'Somebody changes an order, and gives another one the signature of a third:'
.print
UPDATE orders SET payload = replace(payload, '"pieces": 2', '"pieces": 200') WHERE id = 708;
UPDATE orders SET signature = (SELECT signature FROM orders WHERE id = 1000) WHERE id = 1001;

.print 'Verification finds both:'
.print
CREATE TEMP TABLE verified AS
  SELECT id, asymmetric_verify('RSA', payload, signature, @public, 'SHA256') AS good FROM orders;
SELECT count(*) AS orders, count(good) AS good, count(*) - count(good) AS bad FROM verified;
SELECT id, payload FROM orders JOIN verified USING (id) WHERE good IS NULL ORDER BY id;
