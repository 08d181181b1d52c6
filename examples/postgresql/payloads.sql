-- A table whose payloads are digested, signed and verified in SQL. Run it with
--
--   ./run --postgresql examples/postgresql/payloads.sql
--
-- 2000 rows; signing takes a few milliseconds a row.

\set QUIET on
\pset footer off
\pset null NULL

-- The private key is made inside the server and stays there.
CREATE TABLE keys (name text PRIMARY KEY, private_key text NOT NULL, public_key text NOT NULL);
INSERT INTO keys
  SELECT 'orders', private_key, create_asymmetric_pub_key('RSA', private_key)
  FROM (SELECT create_asymmetric_priv_key('RSA', 2048) AS private_key OFFSET 0) AS made;

-- create_digest gives the same digest for the same text, so it may stand in a generated column and
-- in an index.
CREATE TABLE orders (
  id bigint PRIMARY KEY,
  payload text NOT NULL,
  signature bytea,
  digest bytea GENERATED ALWAYS AS (create_digest('SHA256', payload)) STORED
);
CREATE INDEX orders_by_digest ON orders (digest);

-- What other users look at: whether a signature holds, without a word about keys.
CREATE VIEW checked_orders AS
  SELECT id, payload, asymmetric_verify('RSA', payload, signature, public_key, 'SHA256') = 1 IS TRUE AS good
  FROM orders, keys WHERE name = 'orders';

\echo Write and sign the orders:
INSERT INTO orders (id, payload, signature)
  SELECT n, payload, asymmetric_sign('RSA', payload, private_key, 'SHA256')
  FROM generate_series(1, 2000) AS n, keys,
       format('{"order": %s, "article": "A-%s", "pieces": %s}', n, lpad((n % 250)::text, 3, '0'), 1 + n % 7) AS payload
  WHERE name = 'orders';
SELECT count(*) AS orders, count(signature) AS signed, count(DISTINCT digest) AS digests,
       min(length(signature)) AS shortest, max(length(signature)) AS longest
FROM orders;

\echo Find an order by the digest of its text:
SELECT id, payload FROM orders
WHERE digest = create_digest('SHA256', '{"order": 1234, "article": "A-234", "pieces": 3}');

\echo Somebody changes an order, and gives another one the signature of a third. Verification finds both:
UPDATE orders SET payload = replace(payload, '"pieces": 2', '"pieces": 200') WHERE id = 708;
UPDATE orders SET signature = (SELECT signature FROM orders WHERE id = 1000) WHERE id = 1001;
SELECT count(*) AS orders, count(*) FILTER (WHERE good) AS good, count(*) FILTER (WHERE NOT good) AS bad
FROM checked_orders;
SELECT id, payload FROM checked_orders WHERE NOT good ORDER BY id;
