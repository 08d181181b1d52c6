-- An audit table whose rows are signed and chained: changed, removed and inserted rows are found. Run it with
--
--   ./run --postgresql examples/postgresql/audit_table.sql

\set QUIET on
\pset footer off
\pset null NULL

CREATE TABLE signing_key (private_key text NOT NULL, public_key text NOT NULL);
INSERT INTO signing_key
  SELECT private_key, create_asymmetric_pub_key('RSA', private_key)
  FROM (SELECT create_asymmetric_priv_key('RSA', 2048) AS private_key OFFSET 0) AS made;

CREATE TABLE accounts (owner text PRIMARY KEY, balance integer NOT NULL);
CREATE TABLE audit (
  id bigint PRIMARY KEY,
  entry text NOT NULL,
  chain bytea NOT NULL,     -- digest of the row before and of this entry
  signature bytea NOT NULL  -- NOT NULL: an entry that cannot be signed fails the change itself
);
-- With the rights of its owner: whoever changes an account needs none on the key and on the audit table.
CREATE FUNCTION record_change() RETURNS trigger
  LANGUAGE plpgsql SECURITY DEFINER SET search_path = public, pg_temp AS $$
DECLARE
  last audit;
  entry text := format('%s: %s to %s', old.owner, old.balance, new.balance);
  chain bytea;
BEGIN
  LOCK TABLE audit IN EXCLUSIVE MODE;  -- one after the other, so that each row has one row before it
  SELECT * INTO last FROM audit ORDER BY id DESC LIMIT 1;
  chain := create_digest('SHA256', coalesce(last.chain, ''::bytea) || convert_to(entry, 'UTF8'));
  INSERT INTO audit
    SELECT coalesce(last.id, 0) + 1, entry, chain, asymmetric_sign('RSA', chain, private_key, 'SHA256')
    FROM signing_key;
  RETURN NULL;
END
$$;
CREATE TRIGGER account_changed AFTER UPDATE ON accounts FOR EACH ROW EXECUTE FUNCTION record_change();
CREATE VIEW checked_audit AS
  SELECT id, entry,
         chain = create_digest('SHA256', coalesce(lag(chain) OVER (ORDER BY id), ''::bytea)
                                         || convert_to(entry, 'UTF8')) AS in_place,
         asymmetric_verify('RSA', chain, signature, public_key, 'SHA256') = 1 IS TRUE AS signed
  FROM audit, signing_key ORDER BY id;

INSERT INTO accounts VALUES ('Ada', 10), ('Bob', 20);
UPDATE accounts SET balance = 15 WHERE owner = 'Ada';
UPDATE accounts SET balance = 15 WHERE owner = 'Bob';
UPDATE accounts SET balance = 0 WHERE owner = 'Ada';
UPDATE accounts SET balance = 30 WHERE owner = 'Bob';
SELECT * FROM checked_audit;

\echo Somebody changes an entry, with its digest, and removes another one:
UPDATE audit SET entry = 'Ada: 10 to 11', chain = create_digest('SHA256', 'Ada: 10 to 11') WHERE id = 1;
DELETE FROM audit WHERE id = 3;
SELECT * FROM checked_audit;
