-- What one shard holds; psql variable `shard` is its number.
\set ON_ERROR_STOP on

-- Private keys are made here and stay here: what is sent from elsewhere shows up in this server's
-- statement log.
CREATE TABLE signing_keys (
  name text PRIMARY KEY,
  private_key text NOT NULL,
  public_key text NOT NULL
);
REVOKE ALL ON signing_keys FROM PUBLIC;

CREATE TABLE payloads (
  shard integer NOT NULL DEFAULT :shard CHECK (shard = :shard),
  id bigint PRIMARY KEY,
  content text NOT NULL,
  digest_type text NOT NULL DEFAULT 'SHA256',
  digest bytea,
  key_name text,
  signature bytea
);

-- A view brings functions here that a coordinator may not send.
CREATE VIEW checked_payloads AS
  SELECT payload.*, key.public_key,
         asymmetric_verify('RSA', content, signature, key.public_key, digest_type) = 1 AS signature_holds
  FROM payloads AS payload LEFT JOIN signing_keys AS key ON key.name = payload.key_name;

-- Makes a key pair under a name; returns the shard's number and the public key.
CREATE FUNCTION make_signing_key(key_name text, key_length bigint)
  RETURNS TABLE (shard integer, public_key text) LANGUAGE sql
BEGIN ATOMIC
  WITH new_key AS MATERIALIZED (SELECT create_asymmetric_priv_key('RSA', $2) AS private_key)
  INSERT INTO signing_keys
    SELECT $1, private_key, create_asymmetric_pub_key('RSA', private_key) FROM new_key
    RETURNING :shard, public_key;
END;

-- Signs every payload that has no signature yet; returns the shard's number and how many.
CREATE FUNCTION sign_payloads(key_name text)
  RETURNS TABLE (shard integer, signed bigint) LANGUAGE sql
BEGIN ATOMIC
  WITH signed AS (
    UPDATE payloads AS payload
    SET key_name = $1, signature = asymmetric_sign('RSA', content, key.private_key, digest_type)
    FROM signing_keys AS key
    WHERE key.name = $1 AND payload.signature IS NULL
    RETURNING 1)
  SELECT :shard, count(*) FROM signed;
END;
