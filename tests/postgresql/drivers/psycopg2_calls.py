"""Calls through psycopg2, one line per case: what create_digest made of the six bytes."""

import psycopg2

DATA = bytes([0x00, 0x01, 0xFE, 0x5C, 0x78, 0x27])
DIGITS = "\\x" + DATA.hex()
DIGEST = "SELECT encode(create_digest('SHA256', %s), 'hex')"

connection = psycopg2.connect("")
cursor = connection.cursor()


def report(case, statement, value):
    cursor.execute(statement, (value,))
    print(f"{case}: {cursor.fetchone()[0]}")


report("bytes", DIGEST, DATA)
report("Binary", DIGEST, psycopg2.Binary(DATA))
report("str of digits", DIGEST, DIGITS)
report("str of digits, ::bytea", DIGEST.replace("%s", "%s::bytea"), DIGITS)

cursor.execute("SELECT private_key, public_key FROM keys")
private_key, public_key = cursor.fetchone()
cursor.execute("SELECT asymmetric_encrypt('RSA', %s, %s)", (DATA, public_key))
ciphertext = bytes(cursor.fetchone()[0])
cursor.execute("SELECT asymmetric_decrypt('RSA', %s, %s)", (ciphertext, private_key))
print(f"there and back: {bytes(cursor.fetchone()[0]).hex()}")
cursor.execute("SELECT asymmetric_decrypt('RSA', %s, %s)", ("\\x" + ciphertext.hex(), private_key))
print(f"there and back, str of digits: {bytes(cursor.fetchone()[0]).hex()}")

cursor.execute("SET client_min_messages = log")
cursor.execute("SELECT create_asymmetric_priv_key('DSA', 2048)")
notice = connection.notices[-1]
print(f"a notice is one text: {'DETAIL:  Code 13920' in notice and 'HINT:' in notice}")
