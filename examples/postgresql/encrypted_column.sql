-- An encrypted column: each row has a random data key for pgcrypto's AES, and RSA encrypts the data key. Run it with
--
--   ./run --postgresql examples/postgresql/encrypted_column.sql
--
-- RSA alone takes 214 bytes with a 2048-bit key. The key pairs have numbers, so that a new pair can take over.

\set QUIET on
\set ON_ERROR_STOP off
\pset footer off
\set VERBOSITY terse
\pset null NULL
CREATE EXTENSION pgcrypto;
CREATE ROLE clerk;

CREATE TABLE public_keys (id integer PRIMARY KEY, public_key text NOT NULL);
CREATE TABLE private_keys (id integer PRIMARY KEY REFERENCES public_keys, private_key text NOT NULL);
CREATE PROCEDURE add_key_pair(new_id integer) LANGUAGE sql AS $$
  WITH made AS MATERIALIZED (SELECT create_asymmetric_priv_key('RSA', 2048) AS private_key),
       public AS (INSERT INTO public_keys SELECT new_id, create_asymmetric_pub_key('RSA', private_key) FROM made)
  INSERT INTO private_keys SELECT new_id, private_key FROM made
$$;
ALTER TABLE private_keys ALTER CONSTRAINT private_keys_id_fkey DEFERRABLE INITIALLY DEFERRED;
CALL add_key_pair(1);

-- NOT NULL: what cannot be encrypted is not stored.
CREATE TABLE patients (
  name text PRIMARY KEY,
  key_id integer NOT NULL REFERENCES public_keys,
  data_key bytea NOT NULL,  -- encrypted with RSA
  history bytea NOT NULL    -- encrypted with the data key
);
CREATE FUNCTION add_patient(name text, history text) RETURNS void LANGUAGE sql AS $$
  INSERT INTO patients
    SELECT name, id, asymmetric_encrypt('RSA', new_key, public_key),
           pgp_sym_encrypt(history, encode(new_key, 'hex'), 'cipher-algo=aes256')
    FROM (SELECT gen_random_bytes(32) AS new_key OFFSET 0) AS made,
         (SELECT * FROM public_keys ORDER BY id DESC LIMIT 1) AS newest
$$;
GRANT SELECT ON public_keys TO clerk;
GRANT SELECT, INSERT ON patients TO clerk;

\echo The clerk writes, and cannot read:
SET ROLE clerk;
SELECT add_patient('Ada', repeat('long history ', 1000)), add_patient('Bob', 'none') \g /dev/null
SELECT name, key_id, length(data_key) AS data_key, position('history'::bytea IN history) AS readable FROM patients;
SELECT private_key FROM private_keys;
RESET ROLE;

\echo Who has the private key reads:
CREATE VIEW histories AS
  SELECT name, key_id,
         pgp_sym_decrypt(history, encode(asymmetric_decrypt('RSA', data_key, private_key), 'hex')) AS history
  FROM patients JOIN private_keys ON id = key_id;
SELECT name, key_id, length(history) AS characters, left(history, 12) AS history FROM histories;

\echo A new key pair takes over: only the data keys are encrypted again, and NOT NULL keeps each of them:
CALL add_key_pair(2);
UPDATE patients
  SET key_id = 2, data_key = asymmetric_encrypt('RSA', asymmetric_decrypt('RSA', data_key, private_key), public_key)
  FROM private_keys, public_keys
  WHERE private_keys.id = patients.key_id AND public_keys.id = 2;
DELETE FROM private_keys WHERE id = 1;
SELECT name, key_id, length(history) AS characters, left(history, 12) AS history FROM histories;

\echo A wrong key makes the UPDATE fail as a whole:
UPDATE patients SET data_key = asymmetric_encrypt('RSA', data_key, 'no key') WHERE name = 'Ada';
SELECT count(data_key) AS data_keys FROM patients;
