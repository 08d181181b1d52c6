"""Calls through libpq itself, one line per case: what create_digest made of the six bytes."""

import ctypes

DATA = bytes([0x00, 0x01, 0xFE, 0x5C, 0x78, 0x27])
DIGITS = b"\\x" + DATA.hex().encode()
DIGEST = b"SELECT encode(create_digest('SHA256', $1), 'hex')"
CAST_DIGEST = DIGEST.replace(b"$1", b"$1::bytea")
BYTEA = 17
NO_TYPE = 0
TEXT_FORMAT = 0
BINARY_FORMAT = 1

libpq = ctypes.CDLL("libpq.so.5")
for name in ("PQconnectdb", "PQexecParams"):
    getattr(libpq, name).restype = ctypes.c_void_p
for name in ("PQgetvalue", "PQresultErrorMessage"):
    getattr(libpq, name).restype = ctypes.c_char_p
connection = ctypes.c_void_p(libpq.PQconnectdb(b""))


def report(case, statement, value, type_oid, value_format):
    result = ctypes.c_void_p(
        libpq.PQexecParams(
            connection,
            statement,
            1,
            (ctypes.c_uint * 1)(type_oid),
            (ctypes.c_char_p * 1)(value),
            (ctypes.c_int * 1)(len(value)),
            (ctypes.c_int * 1)(value_format),
            TEXT_FORMAT,
        )
    )
    error = libpq.PQresultErrorMessage(result)
    answer = error.splitlines()[0] if error else libpq.PQgetvalue(result, 0, 0)
    print(f"{case}: {answer.decode()}")


report("type bytea, binary", DIGEST, DATA, BYTEA, BINARY_FORMAT)
report("type bytea, digits", DIGEST, DIGITS, BYTEA, TEXT_FORMAT)
report("no type, binary, ::bytea", CAST_DIGEST, DATA, NO_TYPE, BINARY_FORMAT)
report("no type, digits, ::bytea", CAST_DIGEST, DIGITS, NO_TYPE, TEXT_FORMAT)
report("no type, digits", DIGEST, DIGITS, NO_TYPE, TEXT_FORMAT)
report("no type, binary", DIGEST, DATA, NO_TYPE, BINARY_FORMAT)
