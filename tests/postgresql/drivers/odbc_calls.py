"""Calls through psqlODBC, one line per case: what create_digest made of the six bytes, and how a record arrives."""

import os

import pyodbc

DATA = bytes([0x00, 0x01, 0xFE, 0x5C, 0x78, 0x27])
DIGITS = "\\x" + DATA.hex()
DIGEST = "SELECT encode(create_digest('SHA256', ?), 'hex')"

connection = pyodbc.connect(
    "Driver=PostgreSQL Unicode;Servername={PGHOST};Database={PGDATABASE};Username={PGUSER}".format_map(os.environ),
    autocommit=True,
)


def report(case, statement, value):
    try:
        answer = connection.execute(statement, value).fetchone()[0]
    except pyodbc.Error as error:
        answer = error.args[0]
    print(f"{case}: {answer}")


report("bytes, ::bytea", DIGEST.replace("?", "?::bytea"), DATA)
report("str of digits, ::bytea", DIGEST.replace("?", "?::bytea"), DIGITS)
report("str of digits", DIGEST, DIGITS)
report("bytes", DIGEST, DATA)

connection.execute("SET client_min_messages = log")
cursor = connection.execute("SELECT create_asymmetric_priv_key('DSA', 2048)")
sqlstate, text = cursor.messages[0]
print(f"a message: {sqlstate[:7]}, one text: {'DETAIL: Code 13920' in text}, with a hint: {'HINT' in text}")
