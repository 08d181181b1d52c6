"""Calls through psycopg 3, one line per case: what create_digest made of the six bytes, and how a record arrives."""

import psycopg

DATA = bytes([0x00, 0x01, 0xFE, 0x5C, 0x78, 0x27])
DIGITS = "\\x" + DATA.hex()
DIGEST = "SELECT encode(create_digest('SHA256', %s), 'hex')"

connection = psycopg.connect("")


def report(case, statement, value):
    print(f"{case}: {connection.execute(statement, (value,)).fetchone()[0]}")


report("bytes", DIGEST, DATA)
report("str of digits", DIGEST, DIGITS)
report("str of digits, ::bytea", DIGEST.replace("%s", "%s::bytea"), DIGITS)

connection.execute("SET client_min_messages = log")
# The diagnostics are cleared when the handler returns.
connection.add_notice_handler(
    lambda notice: print(f"a notice: {notice.sqlstate}, {notice.message_primary}, {notice.message_hint}")
)
connection.execute("SELECT create_asymmetric_priv_key('DSA', 2048)")
