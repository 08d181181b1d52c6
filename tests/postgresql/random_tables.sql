-- What the random statements read. The variables hold PEM texts.

CREATE TABLE texts (name text PRIMARY KEY, value text NOT NULL);
INSERT INTO texts VALUES ('private_key', :'private_key'), ('public_key', :'public_key'), ('rsa4096', :'rsa4096'),
  ('dsa', :'dsa'), ('ed25519', :'ed25519'), ('plaintext', 'Grüße aus 東京, an die Kasse von Zebra, Quagga, Okapi und Giraffe');
CREATE TABLE rows AS SELECT n AS id FROM generate_series(1, 5) AS n;
ALTER TABLE rows SET (parallel_workers = 2);
ANALYZE rows;
ALTER DATABASE halvex SET parallel_setup_cost = 0;
ALTER DATABASE halvex SET parallel_tuple_cost = 0;
