-- An audit table whose rows are signed and chained: changed, removed and inserted rows are found. Run it with
--
--   ./run examples/audit_table.sql
--
-- The private key is in the temp schema: neither it nor the trigger that uses it is in the database file.

.nullvalue NULL
.mode column

CREATE TEMP TABLE signing_key AS SELECT create_asymmetric_priv_key('RSA', 2048) AS private_key;
CREATE TABLE public_key AS SELECT create_asymmetric_pub_key('RSA', private_key) AS public_key FROM signing_key;

CREATE TABLE accounts (owner TEXT PRIMARY KEY, balance INTEGER NOT NULL);
CREATE TABLE audit (
  id INTEGER PRIMARY KEY,
  entry TEXT NOT NULL,
  chain BLOB NOT NULL,      -- digest of the row before and of this entry
  signature BLOB NOT NULL   -- NOT NULL: an entry that cannot be signed fails the change itself
);
CREATE TEMP TRIGGER account_changed AFTER UPDATE ON accounts BEGIN
  INSERT INTO audit
    SELECT id, entry, chain, asymmetric_sign('RSA', chain, private_key, 'SHA256')
    FROM (SELECT id, entry, create_digest('SHA256', before || entry) AS chain
          FROM (SELECT ifnull(max(id), 0) + 1 AS id,
                       ifnull((SELECT hex(chain) FROM audit ORDER BY id DESC LIMIT 1), '') AS before,
                       format('%s: %d to %d', old.owner, old.balance, new.balance) AS entry
                FROM audit)), temp.signing_key;
END;
CREATE TEMP VIEW checked_audit AS
  SELECT id, entry,
         chain IS create_digest('SHA256', ifnull(lag(hex(chain)) OVER (ORDER BY id), '') || entry) AS in_place,
         asymmetric_verify('RSA', chain, signature, (SELECT public_key FROM public_key), 'SHA256') IS 1 AS signed
  FROM audit;

INSERT INTO accounts VALUES ('Ada', 10), ('Bob', 20);
UPDATE accounts SET balance = 15 WHERE owner = 'Ada';
UPDATE accounts SET balance = 15 WHERE owner = 'Bob';
UPDATE accounts SET balance = 0 WHERE owner = 'Ada';
UPDATE accounts SET balance = 30 WHERE owner = 'Bob';
SELECT * FROM checked_audit;

.print
.print 'Somebody changes an entry, with its digest, and removes another one:'
.print
UPDATE audit SET entry = 'Ada: 10 to 11',
  chain = create_digest('SHA256', 'Ada: 10 to 11') WHERE id = 1;
DELETE FROM audit WHERE id = 3;
SELECT * FROM checked_audit;
