#!/usr/bin/python3
"""An encrypted column in SQLite: each row has a random data key for AES-GCM, and RSA encrypts the data key.

SQLite has no cipher, so the program brings one, here that of Debian's python3-cryptography. It has no users either: the
private keys are in a database of their own, which only programs that read would open. Run it with

    examples/encrypted_column.py

HALVEX in the environment names the extension, without .so; without it, the one of the package sqlite3-halvex is taken.
RSA alone takes 214 bytes with a 2048-bit key. The key pairs have numbers, so that a new pair can take over.
"""

import os
import sqlite3

from cryptography.hazmat.primitives.ciphers.aead import AESGCM

NONCE_LENGTH = 12

connection = sqlite3.connect(":memory:")
connection.enable_load_extension(True)
connection.load_extension(os.environ.get("HALVEX", "halvex_sqlite"))
connection.enable_load_extension(False)


def aes_encrypt(text, data_key, name):
    nonce = os.urandom(NONCE_LENGTH)
    return nonce + AESGCM(data_key).encrypt(nonce, text.encode(), name.encode())


def aes_decrypt(encrypted, data_key, name):
    if data_key is None:  # asymmetric_decrypt failed
        return None
    return AESGCM(data_key).decrypt(encrypted[:NONCE_LENGTH], encrypted[NONCE_LENGTH:], name.encode()).decode()


connection.create_function("aes_encrypt", 3, aes_encrypt)
connection.create_function("aes_decrypt", 3, aes_decrypt)

# NOT NULL: what cannot be encrypted is not stored.
connection.executescript("""
ATTACH ':memory:' AS vault;
CREATE TABLE vault.private_keys (id INTEGER PRIMARY KEY, private_key TEXT NOT NULL);
CREATE TABLE public_keys (id INTEGER PRIMARY KEY, public_key TEXT NOT NULL);
CREATE TABLE patients (
  name TEXT PRIMARY KEY,
  key_id INTEGER NOT NULL REFERENCES public_keys,
  data_key BLOB NOT NULL,  -- encrypted with RSA
  history BLOB NOT NULL    -- encrypted with the data key, and bound to the name
);
""")


def add_key_pair(key_id):
    connection.execute("INSERT INTO private_keys SELECT ?, create_asymmetric_priv_key('RSA', 2048)", (key_id,))
    connection.execute(
        "INSERT INTO public_keys SELECT id, create_asymmetric_pub_key('RSA', private_key) FROM private_keys WHERE id = ?", (key_id,))


def add_patient(name, history):
    connection.execute("""
        INSERT INTO patients
        SELECT :name, id, asymmetric_encrypt('RSA', :data_key, public_key), aes_encrypt(:history, :data_key, :name)
        FROM public_keys ORDER BY id DESC LIMIT 1
        """, {"name": name, "history": history, "data_key": AESGCM.generate_key(256)})


def print_histories():
    for row in connection.execute("""
            SELECT name, key_id, length(history), substr(history, 1, 12)
            FROM (SELECT name, key_id, aes_decrypt(history, asymmetric_decrypt('RSA', data_key, private_key), name) AS history
                  FROM patients JOIN private_keys ON id = key_id)
            ORDER BY name"""):
        print(*row, sep="|")


def print_failure(function, *arguments):
    try:
        function(*arguments)
    except sqlite3.Error as error:
        print(error)


print("Who has the public keys writes:")
add_key_pair(1)
add_patient("Ada", "long history " * 1000)
add_patient("Bob", "none")
for values in connection.execute("SELECT name, key_id, length(data_key), instr(history, CAST('history' AS BLOB)) FROM patients"):
    print(*values, sep="|")

print("Who has the private keys reads:")
print_histories()

print("A new key pair takes over: only the data keys are encrypted again, and NOT NULL keeps each of them:")
add_key_pair(2)
connection.execute("""
    UPDATE patients
    SET key_id = 2, data_key = asymmetric_encrypt('RSA', asymmetric_decrypt('RSA', data_key, private_key), public_key)
    FROM private_keys, public_keys
    WHERE private_keys.id = patients.key_id AND public_keys.id = 2""")
connection.execute("DELETE FROM private_keys WHERE id = 1")
print_histories()

print("A wrong key makes the UPDATE fail as a whole:")
print_failure(connection.execute, "UPDATE patients SET data_key = asymmetric_encrypt('RSA', data_key, 'no key') WHERE name = 'Ada'")

print("A history that was moved to another patient is not read:")
connection.execute("""
    UPDATE patients SET (data_key, history) = (SELECT data_key, history FROM patients WHERE name = 'Ada')
    WHERE name = 'Bob'""")
print_failure(print_histories)
