/* minimal_digest(digest_type, data): create_digest without a component, a stand-in server and their
 * checks. The least that an SQLite extension can do to give the same value with the same OpenSSL
 * calls: what create_digest is measured against. */

#include <openssl/evp.h>
#include <sqlite3ext.h>
#include <string.h>

SQLITE_EXTENSION_INIT1

static void minimal_digest(sqlite3_context *context, int argc, sqlite3_value **argv) {
  unsigned char out[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  (void)argc;
  const char *const name = (const char *)sqlite3_value_text(argv[0]);
  const int is_text = sqlite3_value_type(argv[1]) == SQLITE_TEXT;
  const void *const data = is_text ? sqlite3_value_text(argv[1]) : sqlite3_value_blob(argv[1]);
  if (name == NULL || strcmp(name, "SHA256") != 0) {
    sqlite3_result_null(context);
    return;
  }
  EVP_MD_CTX *const digest = EVP_MD_CTX_new();
  if (digest != NULL && EVP_DigestInit(digest, EVP_sha256()) == 1 &&
      EVP_DigestUpdate(digest, data, (size_t)sqlite3_value_bytes(argv[1])) == 1 &&
      EVP_DigestFinal(digest, out, &length) == 1) {
    sqlite3_result_blob(context, out, (int)length, SQLITE_TRANSIENT);
  } else {
    sqlite3_result_null(context);
  }
  EVP_MD_CTX_free(digest);
}

int sqlite3_minimaldigest_init(sqlite3 *database, char **out_error,
                               const sqlite3_api_routines *api) {
  (void)out_error;
  SQLITE_EXTENSION_INIT2(api);
  return sqlite3_create_function(database, "minimal_digest", 2, SQLITE_UTF8 | SQLITE_DETERMINISTIC,
                                 NULL, minimal_digest, NULL, NULL);
}
