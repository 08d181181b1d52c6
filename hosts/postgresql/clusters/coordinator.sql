-- What the coordinator holds: foreign partitions of every shard's tables, and functions that run on
-- every shard. psql variables: `shards` is how many there are, `folder` where their sockets are.
\set ON_ERROR_STOP on

CREATE EXTENSION postgres_fdw;
CREATE EXTENSION plproxy;

-- `extensions` lets IMMUTABLE functions of this extension run on a shard, `async_capable` lets the
-- shards work at the same time. Without `connect_timeout` (seconds), connecting to a shard that hangs
-- ends neither at a statement_timeout nor at a cancel.
SELECT format('CREATE SERVER shard_%1$s FOREIGN DATA WRAPPER postgres_fdw OPTIONS (
                 host %2$L, dbname ''halvex'', extensions ''halvex_encryption'',
                 async_capable ''true'', fetch_size ''1000'', connect_timeout ''5'')',
              number, :'folder' || '/shard_' || number)
  FROM generate_series(1, :shards) AS number \gexec
SELECT format('CREATE USER MAPPING FOR CURRENT_USER SERVER shard_%s OPTIONS (user ''postgres'')', number)
  FROM generate_series(1, :shards) AS number \gexec

CREATE TABLE payloads (
  shard integer NOT NULL,
  id bigint NOT NULL,
  content text NOT NULL,
  digest_type text NOT NULL DEFAULT 'SHA256',
  digest bytea,
  key_name text,
  signature bytea
) PARTITION BY LIST (shard);
SELECT format('CREATE FOREIGN TABLE payloads_%1$s PARTITION OF payloads FOR VALUES IN (%1$s)
                 SERVER shard_%1$s OPTIONS (table_name ''payloads'')', number)
  FROM generate_series(1, :shards) AS number \gexec

CREATE TABLE checked_payloads (
  shard integer NOT NULL,
  id bigint NOT NULL,
  content text NOT NULL,
  digest_type text NOT NULL,
  digest bytea,
  key_name text,
  signature bytea,
  public_key text,
  signature_holds boolean
) PARTITION BY LIST (shard);
SELECT format('CREATE FOREIGN TABLE checked_payloads_%1$s PARTITION OF checked_payloads
                 FOR VALUES IN (%1$s) SERVER shard_%1$s
                 OPTIONS (table_name ''checked_payloads'', updatable ''false'')', number)
  FROM generate_series(1, :shards) AS number \gexec

-- Counting by shard then happens on the shards, all at once.
ALTER DATABASE halvex SET enable_partitionwise_aggregate = on;

SELECT format('CREATE SERVER shards FOREIGN DATA WRAPPER plproxy OPTIONS (modular_mapping ''1'', %s)',
              string_agg(format('p%s %L', number - 1,
                                format('dbname=halvex host=%s/shard_%s', :'folder', number)), ', '))
  FROM generate_series(1, :shards) AS number \gexec
CREATE USER MAPPING FOR CURRENT_USER SERVER shards OPTIONS (user 'postgres');

CREATE FUNCTION make_signing_key(key_name text, key_length bigint)
  RETURNS TABLE (shard integer, public_key text) LANGUAGE plproxy AS $$
  CLUSTER 'shards'; RUN ON ALL;
$$;
CREATE FUNCTION sign_payloads(key_name text)
  RETURNS TABLE (shard integer, signed bigint) LANGUAGE plproxy AS $$
  CLUSTER 'shards'; RUN ON ALL;
$$;
