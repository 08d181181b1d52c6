-- Lets postgres_fdw send asymmetric_verify and asymmetric_decrypt to the shards. Run it on a
-- coordinator, in the database with the foreign tables, as the owner of the extension.
--
-- Only IMMUTABLE functions are sent, so this declares the two to be that. They are not: the setting
-- component_halvex_encryption.rsa_support_legacy_padding decides what they accept, on the machine
-- where they run. Before you run it:
--
-- * With constant arguments the result is computed when a statement is planned. A prepared statement
--   or a PL/pgSQL function that keeps its plan keeps the old answer after the setting has changed.
-- * The server now accepts the two in indexes, generated columns and partition keys, which would
--   hold answers from before a change of the setting. Do not use them there.
-- * A shard answers by its own setting. Set it alike everywhere.
-- * What is sent appears in the shard's statement log and in its list of activity, constants
--   included. Public keys may; a private key for asymmetric_decrypt has to be in a column on the
--   shard, never in the statement.
--
-- pg_dump does not remember this change: run the script again after a restore. To take it back, say
-- STABLE instead of IMMUTABLE.

ALTER FUNCTION asymmetric_verify(text, text, bytea, text, text) IMMUTABLE;
ALTER FUNCTION asymmetric_verify(text, bytea, bytea, text, text) IMMUTABLE;
ALTER FUNCTION asymmetric_decrypt(text, bytea, text) IMMUTABLE;
