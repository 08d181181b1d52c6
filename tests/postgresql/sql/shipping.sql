-- What the coordinator sends to the shards, and what it computes itself.

\set explain 'EXPLAIN (VERBOSE, COSTS OFF)'
INSERT INTO payloads (shard, id, content)
  SELECT 1 + n % 2, n, 'payload ' || n FROM generate_series(1, 200) AS n;

\echo -- Sent: an IMMUTABLE function in WHERE, when a text argument comes from a foreign column.
:explain SELECT id FROM payloads_1 WHERE digest = create_digest(digest_type, content);
:explain SELECT id FROM payloads_1 WHERE digest = create_digest('SHA256', content);
:explain SELECT id FROM payloads_1 WHERE create_digest(digest_type, digest) = digest;
\echo -- Not sent: its only text is a constant, whose collation is not that of the foreign table.
:explain SELECT id FROM payloads_1 WHERE digest = create_digest('SHA256', digest);
\echo -- Computed once, here, and its result sent: nothing in it depends on a row.
:explain SELECT id FROM payloads_1 WHERE digest = create_digest('SHA256', 'abc');

\echo -- Sent: the aggregate of a whole table; a direct UPDATE and DELETE.
:explain SELECT count(*) FROM payloads_1 WHERE digest = create_digest(digest_type, content);
:explain SELECT sum(length(create_digest(digest_type, content))) FROM payloads_1;
:explain UPDATE payloads SET digest = create_digest(digest_type, content);
:explain DELETE FROM payloads WHERE digest <> create_digest(digest_type, content);
\echo -- Not sent: a select list.
:explain SELECT create_digest(digest_type, content) FROM payloads_1;

\echo -- Grouped by the partition key, all shards count at the same time.
:explain SELECT shard, count(*) FROM payloads WHERE digest = create_digest(digest_type, content) GROUP BY shard;
\echo -- A count over all partitions has only its filter sent, and is one shard after the other.
:explain SELECT count(*) FROM payloads WHERE digest = create_digest(digest_type, content);

\echo -- Not sent: STABLE and VOLATILE functions.
:explain SELECT id FROM payloads_1 WHERE asymmetric_verify('RSA', content, signature, 'key', digest_type) = 1;
:explain SELECT id FROM payloads_1 WHERE asymmetric_decrypt('RSA', signature, content) IS NOT NULL;
:explain UPDATE payloads_1 SET signature = asymmetric_encrypt('RSA', content, 'key');

\echo -- Not sent, so that no private key gets into the log of another server.
:explain SELECT id FROM payloads_1 WHERE create_asymmetric_pub_key(digest_type, content) = content;

\echo -- A view on the shard brings any function there.
:explain SELECT shard, count(*) FROM checked_payloads WHERE signature_holds GROUP BY shard;

\echo -- A function that runs on all shards brings VOLATILE work there. It really does all of it.
UPDATE payloads SET digest = create_digest(digest_type, content);
SELECT shard, left(public_key, 26) AS public_key FROM make_signing_key('main', 2048) ORDER BY shard;
SELECT * FROM sign_payloads('main') ORDER BY shard;
SELECT * FROM sign_payloads('main') ORDER BY shard;
SELECT shard, count(*) FROM checked_payloads WHERE signature_holds GROUP BY shard ORDER BY shard;
SELECT count(*) AS right_digests FROM payloads WHERE digest = sha256(content::bytea);
SELECT shard, count(*) FROM payloads WHERE digest = create_digest(digest_type, content)
  GROUP BY shard ORDER BY shard;

\echo -- Whoever decides so has verification and decryption sent as well.
\ir :source_folder/hosts/postgresql/clusters/ship_more.sql
:explain SELECT id FROM payloads_1 WHERE asymmetric_verify('RSA', content, signature, 'key', digest_type) = 1;
:explain SELECT id FROM payloads_1 WHERE asymmetric_decrypt('RSA', signature, content) IS NOT NULL;
:explain SELECT shard, count(*) FROM payloads
  WHERE asymmetric_verify('RSA', content, signature, 'key', digest_type) = 1 GROUP BY shard;
SELECT shard AS of_shard, public_key FROM checked_payloads WHERE id IN (1, 2) ORDER BY shard LIMIT 1 \gset
SELECT shard, count(*) FROM payloads
  WHERE asymmetric_verify('RSA', content, signature, :'public_key', digest_type) = 1 GROUP BY shard;
