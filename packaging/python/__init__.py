"""RSA keys, encryption, signatures and digests as SQL functions in SQLite.

    import sqlite3, halvex_sqlite

    connection = sqlite3.connect("orders.db")
    halvex_sqlite.load(connection)
    connection.execute("SELECT hex(create_digest('SHA256', 'abc'))").fetchone()
"""

import pathlib

__all__ = ["load", "loadable_path"]


def loadable_path():
    """Path of the extension as SQLite's load_extension takes it, without the suffix."""
    return str(pathlib.Path(__file__).resolve().with_name("halvex_sqlite"))


def load(connection):
    """Gives a connection of the module sqlite3 the functions and tables of the extension.

    Leaves the loading of extensions disabled. Raises AttributeError if this Python was built without it, and
    sqlite3.OperationalError, with the reason, if the extension cannot be loaded.
    """
    connection.enable_load_extension(True)
    try:
        connection.load_extension(loadable_path())
    finally:
        connection.enable_load_extension(False)
