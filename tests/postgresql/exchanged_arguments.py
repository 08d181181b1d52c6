"""Calls every function with every two of its arguments exchanged, and prints which pieces of keys and of
the plaintext the server's log and its messages to the client then hold.

Usage: exchanged_arguments.py LOG, with libpq's environment and the tables of exchanged_arguments_test
"""

import itertools
import sys

import psycopg2

from secret_pieces import find_pieces

# Of a text that a user chose, 32 characters may be quoted. Of a key that is the BEGIN line and what every
# key of its kind begins with.
QUOTED = 32
PIECE = 8

FUNCTIONS = {
    "create_asymmetric_priv_key": [("algorithm", "text"), ("key_length", "bigint")],
    "create_asymmetric_pub_key": [("algorithm", "text"), ("private_key", "text")],
    "asymmetric_encrypt": [("algorithm", "text"), ("plaintext", "text"), ("public_key", "text")],
    "asymmetric_decrypt": [("algorithm", "text"), ("ciphertext", "bytea"), ("private_key", "text")],
    "asymmetric_sign": [
        ("algorithm", "text"),
        ("plaintext", "text"),
        ("private_key", "text"),
        ("digest_type", "text"),
    ],
    "asymmetric_verify": [
        ("algorithm", "text"),
        ("plaintext", "text"),
        ("signature", "bytea"),
        ("public_key", "text"),
        ("digest_type", "text"),
    ],
    "create_digest": [("digest_type", "text"), ("plaintext", "text")],
}

connection = psycopg2.connect("")
connection.autocommit = True
cursor = connection.cursor()
cursor.execute("SET client_min_messages = log")
said = []
calls = 0


def call(function, names, types):
    """Values come from the table: the statement itself holds none of them."""
    global calls
    arguments = ", ".join(
        f"(SELECT value FROM arguments WHERE name = '{name}')::{type_}" for name, type_ in zip(names, types)
    )
    try:
        cursor.execute(f"SELECT {function}({arguments}) IS NULL")
    except psycopg2.Error as error:
        said.append(str(error))
    said.extend(connection.notices)
    del connection.notices[:]
    calls += 1


for function, parameters in FUNCTIONS.items():
    names = [name for name, _ in parameters]
    types = [type_ for _, type_ in parameters]
    for i, j in itertools.combinations(range(len(names)), 2):
        exchanged = names.copy()
        exchanged[i], exchanged[j] = names[j], names[i]
        call(function, exchanged, types)

cursor.execute("SELECT value FROM arguments WHERE name IN ('private_key', 'public_key', 'plaintext')")
secrets = [value for (value,) in cursor.fetchall()]
with open(sys.argv[1], encoding="utf-8", errors="replace") as log:
    written = log.read()

print(f"{calls} exchanges")
print(f"in the log: {find_pieces(secrets, written, PIECE, QUOTED + PIECE)}")
print(f"said to the client: {find_pieces(secrets, ''.join(said), PIECE, QUOTED + PIECE)}")
# What may be quoted is there, so the calls have reached both.
print(f"quoted: {'-----BEGIN PRIV' in written.upper()}, {'-----BEGIN PRIV' in ''.join(said).upper()}")
