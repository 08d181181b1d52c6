-- A table over two servers, whose rows are digested, signed and verified where they are. Run it with
--
--   ./run --shards 2 examples/postgresql/shards.sql

\set QUIET on
\pset footer off
\pset null NULL

\echo Write 2000 payloads; the column shard says where they go.
INSERT INTO payloads (shard, id, content)
  SELECT 1 + n % 2, n, 'payload ' || n FROM generate_series(1, 2000) AS n;
SELECT shard, count(*) FROM payloads GROUP BY shard ORDER BY shard;

\echo Digests: one UPDATE, which each shard runs on its own rows.
UPDATE payloads SET digest = create_digest(digest_type, content);
EXPLAIN (VERBOSE, COSTS OFF) UPDATE payloads SET digest = create_digest(digest_type, content);

\echo A key pair for each shard, made there; only the public half comes back.
SELECT shard, left(public_key, 26) AS public_key FROM make_signing_key('main', 2048) ORDER BY shard;

\echo Signatures, made on the shards:
SELECT * FROM sign_payloads('main') ORDER BY shard;

\echo Verification on all shards at the same time:
EXPLAIN (VERBOSE, COSTS OFF) SELECT shard, count(*) FROM checked_payloads WHERE signature_holds GROUP BY shard;
SELECT shard, count(*) FROM checked_payloads WHERE signature_holds GROUP BY shard ORDER BY shard;

\echo Somebody changes a row. Its digest and its signature tell:
UPDATE payloads SET content = 'payload 1000000' WHERE id = 1000;
SELECT shard, id, content FROM payloads WHERE digest <> create_digest(digest_type, content);
SELECT shard, id, content FROM checked_payloads WHERE signature_holds IS NOT TRUE;
