#include "support/der.h"

#include <openssl/evp.h>

namespace halvex_test::der {

std::string element(char tag, std::string_view content) {
  std::string made{tag, '\x82', static_cast<char>(content.size() / 256),
                   static_cast<char>(content.size() % 256)};
  return made.append(content);
}

std::string integer(std::size_t bits) {
  std::string content(1 + bits / 8, '\xC3');
  content.front() = '\0';
  return element(integer_tag, content);
}

std::string sequence(std::string_view content) { return element(sequence_tag, content); }

std::string pem(std::string_view der, const std::string &label) {
  std::string base64(4 * (der.size() / 3 + 1) + 1, '\0');
  const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char *>(base64.data()),
                                     reinterpret_cast<const unsigned char *>(der.data()),
                                     static_cast<int>(der.size()));
  base64.resize(static_cast<std::size_t>(length));
  std::string text = "-----BEGIN " + label + "-----\n";
  for (std::size_t i = 0; i < base64.size(); i += 64) {
    text.append(base64, i, 64).append("\n");
  }
  return text + "-----END " + label + "-----\n";
}

}  // namespace halvex_test::der
