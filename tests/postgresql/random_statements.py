"""Drives the extension with random statements for a while.

Usage: random_statements.py SEED SECONDS LOG, with libpq's environment and the tables of random_tables.sql
       random_statements.py --print SEED COUNT, prints statements for a single-user server instead

Every statement calls one of the functions with random values: whole keys and pieces of them, other texts, any bytes,
numbers, NULL. Callers are the session, parallel workers, PL/pgSQL, prepared statements and cursors, inside
and outside of transactions, while settings of the session change. Values come from the table, so that no
statement holds a secret. Fails at an error that is not expected, at a lost connection, or if the server's
log then holds more of a text than may be quoted.
"""

import random
import sys
import time

import psycopg2

from secret_pieces import find_pieces

# Of a text that a user chose, 32 characters may be quoted.
PIECE = 33

SIGNATURES = {
    "create_asymmetric_priv_key": ["text", "bigint"],
    "create_asymmetric_pub_key": ["text", "text"],
    "asymmetric_encrypt": ["text", "data", "text"],
    "asymmetric_decrypt": ["text", "bytea", "text"],
    "asymmetric_sign": ["text", "data", "text", "text"],
    "asymmetric_verify": ["text", "data", "bytea", "text", "text"],
    "create_digest": ["text", "data"],
}

# An algorithm and a digest type that are right let a call get further than most others.
USUAL = ["'RSA'", "'rsa'", "'SHA256'", "'sha512'", "'SHA3-256'", "'SHA1'", "''"]

# The names in the table `texts`.
TEXTS = ["dsa", "ed25519", "plaintext", "private_key", "public_key", "rsa4096"]

EXPECTED_ERRORS = {
    "21000": "more than one row of the table",
    "22021": "bytes that are no text",
    "38000": "a key that is too long",
    "57014": "a timeout",
}

AFTER_ERROR = ["ROLLBACK", "RESET statement_timeout", "DEALLOCATE ALL", "DROP TABLE IF EXISTS t"]

SETTINGS = {
    "client_encoding": ["UTF8", "LATIN1", "SQL_ASCII", "WIN1252"],
    "client_min_messages": ["debug1", "log", "notice", "warning", "error"],
    "halvex_encryption.record_level": ["debug1", "log", "notice", "warning"],
    "jit": ["on", "off"],
    "plan_cache_mode": ["auto", "force_generic_plan"],
    "max_parallel_workers_per_gather": ["0", "2"],
    "parallel_leader_participation": ["on", "off"],
}


class Statements:
    """Makes random statements."""

    def __init__(self, source, names):
        self.random = source
        self.names = names

    def text(self):
        name = self.random.choice(self.names)
        value = f"(SELECT value FROM texts WHERE name = '{name}')"
        start, length = self.random.randrange(1, 2000), self.random.choice([1, 30, 33, 500, 20000])
        return self.random.choice(
            [
                value,
                value,
                value,
                self.random.choice(USUAL),
                self.random.choice(USUAL),
                self.random.choice(USUAL),
                f"substr({value}, {start}, {length})",
                f"overlay({value} PLACING 'x' FROM {start})",
                f"repeat({value}, {self.random.choice([2, 9, 300])})",
                f"{value} || chr({self.random.choice([9, 10, 27, 127, 155, 233, 8238, 26085, 128512])})",
                f"upper({value})",
                "NULL::text",
            ]
        )

    def bytes(self):
        return self.random.choice(
            [
                f"convert_to({self.text()}, 'UTF8')",
                f"set_byte(convert_to('x' || {self.text()}, 'UTF8'), 0, {self.random.randrange(256)})",
                "asymmetric_encrypt('RSA', 'data', (SELECT value FROM texts WHERE name = 'public_key'))",
                "asymmetric_sign('RSA', 'data', (SELECT value FROM texts WHERE name = 'private_key'), 'SHA256')",
                "'\\x'::bytea",
                "NULL::bytea",
            ]
        )

    def number(self):
        # Few statements can afford a key of 2048 bits, none a longer one.
        lengths = [-1, 0, 1, 2047, 2049, 4097, 1 << 31, (1 << 63) - 1, -(1 << 63)]
        return "NULL::bigint" if self.random.random() < 0.1 else f"('{self.random.choice(lengths)}')::bigint"

    def argument(self, kind):
        if kind == "bigint":
            return self.number()
        if kind == "bytea" or (kind == "data" and self.random.random() < 0.5):
            return self.bytes()
        return self.text()

    def call(self):
        function = self.random.choice(list(SIGNATURES))
        return f"{function}({', '.join(self.argument(kind) for kind in SIGNATURES[function])})"

    def statement(self):
        call = self.call()
        return self.random.choice(
            [
                f"SELECT {call}",
                f"SELECT {call}, {self.call()}",
                f"SELECT count({call}) FROM rows WHERE id <= 3",
                f"SELECT id FROM rows WHERE {call} IS NULL AND id <= 3",
                f"DO $do$ BEGIN PERFORM {call}; EXCEPTION WHEN OTHERS THEN RAISE; END $do$",
                f"DO $do$ BEGIN EXECUTE $run${'SELECT ' + call}$run$; END $do$",
                f"PREPARE p AS SELECT {call}; EXECUTE p; EXECUTE p; DEALLOCATE p",
                f"BEGIN; DECLARE c CURSOR FOR SELECT {call} FROM rows; FETCH 2 FROM c; COMMIT",
                f"BEGIN; SAVEPOINT s; SELECT {call}; ROLLBACK TO s; SELECT {call}; ROLLBACK",
                f"CREATE TEMP TABLE t AS SELECT {call} AS value; DROP TABLE t",
                f"SET statement_timeout = '5ms'; SELECT {call} FROM rows; RESET statement_timeout",
            ]
        )

    def setting(self):
        name = self.random.choice(list(SETTINGS))
        return f"SET {name} = '{self.random.choice(SETTINGS[name])}'"


def connect():
    connection = psycopg2.connect("")
    connection.autocommit = True
    return connection


def main(seed, seconds, log):
    connection = connect()
    cursor = connection.cursor()
    cursor.execute("SELECT name, value FROM texts ORDER BY name")
    texts = dict(cursor.fetchall())
    secrets = [value for name, value in texts.items() if name != "public_key"]
    statements = Statements(random.Random(seed), TEXTS)
    ran = failed = 0
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        if statements.random.random() < 0.02:
            connection.close()
            connection = connect()
            cursor = connection.cursor()
        if statements.random.random() < 0.3:
            cursor.execute(statements.setting())
        statement = statements.statement()
        ran += 1
        try:
            cursor.execute(statement)
        except psycopg2.Error as error:
            if error.pgcode not in EXPECTED_ERRORS:
                sys.exit(f"seed {seed}, statement {ran}: {error.pgcode} {error}\n{statement}")
            failed += 1
            cursor.execute("; ".join(AFTER_ERROR))
        del connection.notices[:]
    with open(log, encoding="utf-8", errors="replace") as written:
        # The blank before the mark of an omission is not the text's own, even where the text has one there.
        found = find_pieces(secrets, written.read().replace(" <...>", "<...>"), PIECE)
    if found:
        sys.exit(f"seed {seed}: the log holds {found[0]!r} and {len(found) - 1} more pieces of secrets")
    print(f"seed {seed}: {ran} statements, {failed} of them failed as expected")


def print_statements(seed, count):
    statements = Statements(random.Random(seed), TEXTS)
    for _ in range(count):
        if statements.random.random() < 0.3:
            print(statements.setting(), end=";\n\n")
        for statement in (statements.statement(), *AFTER_ERROR):
            print(statement, end=";\n\n")


if sys.argv[1] == "--print":
    print_statements(int(sys.argv[2]), int(sys.argv[3]))
else:
    main(int(sys.argv[1]), float(sys.argv[2]), sys.argv[3])
