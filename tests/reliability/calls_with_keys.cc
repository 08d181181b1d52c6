#include "calls_with_keys.h"

#include <ostream>

#include "support/fixture.h"

namespace halvex_test {

void PrintTo(const Known_call &call, std::ostream *out) { *out << call.function; }

std::vector<Known_call> calls_with_keys() {
  const std::string public_key = fixture("rsa2048-public.pem");
  const std::string private_key = fixture("rsa2048.pem");
  return {{"create_asymmetric_pub_key", {"RSA", private_key}, public_key, public_key.size()},
          {"asymmetric_encrypt", {"RSA", "abc", public_key}, "", 256},
          {"asymmetric_sign", {"RSA", "abc", private_key, "SHA256"}, "", 256}};
}

bool is_right_value(const Known_call &call, std::string_view value) {
  return call.bytes.empty() ? value.size() == call.length : value == call.bytes;
}

std::string test_name(const Known_call &call, const std::string &part, Fault_mode mode) {
  std::string name = call.function;
  std::erase(name, '_');
  return name + part + (mode == Fault_mode::once ? "Once" : "FromThenOn");
}

}  // namespace halvex_test
