#include "dovrin_host/key_limits.h"

#include <openssl/asn1.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <algorithm>
#include <bit>
#include <new>
#include <utility>

#include "halvex_encryption/openssl_owners.h"

namespace dovrin_host {
namespace {

using halvex_encryption::Bio_ptr;

// A key of no more bytes holds no numbers that take OpenSSL a second, so its row is spared the
// reading.
constexpr std::size_t harmless_key = 2048;

// The formats of keys nest half as deep.
constexpr int deepest_nesting = 16;

// Bits of a DER integer's content.
std::size_t count_bits(std::string_view number) {
  number.remove_prefix(std::min(number.find_first_not_of('\0'), number.size()));
  return number.empty() ? 0
                        : 8 * number.size() - static_cast<std::size_t>(std::countl_zero(
                                                  static_cast<unsigned char>(number.front())));
}

// Bits of the longest number among the DER elements `elements`, and in them. What is not DER ends
// the search on its level, as it ends OpenSSL's reading.
std::size_t find_longest_number(std::string_view elements, int depth = 0) {
  std::size_t longest = 0;
  while (!elements.empty() && depth < deepest_nesting) {
    const auto *const begin = reinterpret_cast<const unsigned char *>(elements.data());
    const unsigned char *content = begin;
    long length = 0;
    int tag = 0;
    int tag_class = 0;
    const int form =
        ASN1_get_object(&content, &length, &tag, &tag_class, static_cast<long>(elements.size()));
    if ((form & 0x80) != 0) {
      break;
    }
    const auto header = static_cast<std::size_t>(content - begin);
    // Of an indefinite length, which the element's end ends, all that follows can be the content.
    const bool is_indefinite = (form & 1) != 0;
    std::string_view inner = elements.substr(header);
    if (!is_indefinite) {
      inner = inner.substr(0, static_cast<std::size_t>(length));
    }
    elements.remove_prefix(header + inner.size());

    const bool is_string =
        tag_class == V_ASN1_UNIVERSAL && (tag == V_ASN1_OCTET_STRING || tag == V_ASN1_BIT_STRING);
    if ((form & V_ASN1_CONSTRUCTED) != 0) {
      // The parts of a string in several parts can be put together to one number.
      longest =
          std::max(longest, is_string ? 8 * inner.size() : find_longest_number(inner, depth + 1));
    } else if (is_string) {
      // A bit string begins with the number of its unused bits.
      inner.remove_prefix(tag == V_ASN1_BIT_STRING && !inner.empty() ? 1 : 0);
      longest = std::max(longest, find_longest_number(inner, depth + 1));
    } else if (tag_class == V_ASN1_UNIVERSAL && tag == V_ASN1_INTEGER) {
      longest = std::max(longest, count_bits(inner));
    }
  }
  return longest;
}

// Bits of the longest number in the PEM blocks of a text. What it cannot read leaves no error
// behind, which the row would report as its own.
std::size_t find_longest_key_number(std::string_view key) {
  const Bio_ptr bio{BIO_new_mem_buf(key.data(), static_cast<int>(key.size()))};
  if (!bio) {
    throw std::bad_alloc{};
  }
  std::size_t longest = 0;
  std::size_t unread = key.size();
  std::size_t unread_before = 0;
  do {
    char *name = nullptr;
    char *header = nullptr;
    unsigned char *data = nullptr;
    long length = 0;
    ERR_set_mark();
    // As OpenSSL reads keys itself, but what it put aside is wiped.
    if (PEM_read_bio_ex(bio.get(), &name, &header, &data, &length,
                        PEM_FLAG_EAY_COMPATIBLE | PEM_FLAG_SECURE) == 1) {
      const std::string_view block{reinterpret_cast<const char *>(data),
                                   static_cast<std::size_t>(length)};
      longest = std::max(longest, find_longest_number(block));
      OPENSSL_secure_free(name);
      OPENSSL_secure_free(header);
      OPENSSL_secure_clear_free(data, block.size());
    }
    ERR_pop_to_mark();
    // OpenSSL goes on behind a block that it cannot read, and so does this, but out of memory there
    // is no progress.
    unread_before = std::exchange(unread, BIO_ctrl_pending(bio.get()));
  } while (unread > 0 && unread < unread_before);
  return longest;
}

}  // namespace

std::string describe_excess(std::string_view key) {
  if (key.size() > longest_key) {
    return "a key of " + std::to_string(key.size()) + " bytes; the limit is " +
           std::to_string(longest_key);
  }
  if (key.size() > harmless_key) {
    if (const std::size_t bits = find_longest_key_number(key); bits > longest_key_number) {
      return "a key with a number of " + std::to_string(bits) + " bits; the limit is " +
             std::to_string(longest_key_number);
    }
  }
  return {};
}

}  // namespace dovrin_host
