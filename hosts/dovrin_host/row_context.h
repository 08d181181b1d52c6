// The OpenSSL library context in which a row runs.
//
// To read one PEM text OpenSSL 3.0 collects all decoders and key managers of the library context,
// under locks that all threads share; that is most of an RSA row. So each thread has a small
// context of its own, made at its first row that can use one: of the default provider's decoders,
// encoders and key managers it has only RSA's, everything else is the default provider's as it is.
//
// A row must not differ from one in the default context, so the small one is a first attempt only:
// a row that gives NULL or reports anything there is run again in the default context, and only the
// second run counts.

#ifndef DOVRIN_HOST_ROW_CONTEXT_H
#define DOVRIN_HOST_ROW_CONTEXT_H

#include <openssl/types.h>

#include <string_view>

namespace dovrin_host {

// When rows run in the small context first: where that is measured to pay by a fifth at least (on
// one thread; with rows on several threads it always does), always, or never.
enum class Small_context_use { where_it_pays, always, never };

// What the environment variable HALVEX_ROW_CONTEXT asks for: `on` always, `off` never, anything
// else where it pays.
Small_context_use small_context_use_of_environment() noexcept;

// Decides for all rows of the process that begin later. Where it pays, until it is called. Any
// thread.
void set_small_context_use(Small_context_use use) noexcept;

// True if both contexts read the same key from `pem`: it has exactly one PEM block, labelled PUBLIC
// KEY, PRIVATE KEY or RSA PRIVATE KEY, without a header (RFC 1421), which encrypted keys have. Of
// several blocks the small context skips those of other algorithms. Any thread.
bool reads_alike_in_small_context(std::string_view pem) noexcept;

// Makes the calling thread's small context its default while this object exists, if
// Small_context_use allows it. Has no effect while the thread or the process has changed what the
// default context does (another thread-default context, provider, engine or default property),
// where the configuration file chooses random generators, when out of memory, and while the thread
// ends.
class Small_context_scope {
 public:
  Small_context_scope() noexcept;
  Small_context_scope(const Small_context_scope &) = delete;
  Small_context_scope &operator=(const Small_context_scope &) = delete;

  // Makes the former context the thread's default again.
  ~Small_context_scope();

  // False if the row has to run in the default context.
  explicit operator bool() const noexcept { return former_ != nullptr; }

 private:
  OSSL_LIB_CTX *former_ = nullptr;
};

}  // namespace dovrin_host

#endif  // DOVRIN_HOST_ROW_CONTEXT_H
