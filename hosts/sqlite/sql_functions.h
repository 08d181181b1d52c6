// The component's functions as SQL functions of a connection.
//
//   create_asymmetric_priv_key(algorithm, key_length) -> TEXT, a PEM private key
//   create_asymmetric_pub_key(algorithm, private_key) -> TEXT, a PEM public key
//   asymmetric_encrypt(algorithm, data, public_key) -> BLOB
//   asymmetric_decrypt(algorithm, data, private_key) -> BLOB
//   asymmetric_sign(algorithm, content, private_key, digest_type) -> BLOB
//   asymmetric_verify(algorithm, content, signature, public_key, digest_type) -> 1 or NULL
//   create_digest(digest_type, text) -> BLOB
//
// All of them accept any number of arguments here: the component counts them and checks their
// types, and its message is the statement's error. Schemas may use create_digest in any case, the
// others while PRAGMA trusted_schema is on, and create_asymmetric_priv_key never.

#ifndef HALVEX_SQLITE_SQL_FUNCTIONS_H
#define HALVEX_SQLITE_SQL_FUNCTIONS_H

#include "sqlite/sqlite_api.h"

namespace halvex_sqlite {

// Gives the connection every function that the server knows. Returns an SQLite result code.
int create_sql_functions(sqlite3 *database);

}  // namespace halvex_sqlite

#endif  // HALVEX_SQLITE_SQL_FUNCTIONS_H
