// Function_metadata, and the numbers of Algorithm_type.

#include <clocale>
#include <cstdlib>
#include <fstream>
#include <iomanip>

#include "classes/class_test.h"
#include "halvex_encryption/function_metadata.h"
#include "halvex_encryption/functions.h"
#include "support/temporary_folder.h"

namespace halvex_test {
namespace {

using halvex_encryption::Algorithm_type;
using halvex_encryption::Function_metadata;

TEST(FunctionMetadata, UpperCasesItsCopyOfTheAlgorithmAlone) {
  const std::string function = "a_function";
  const std::string algorithm = "rsa-Pss 1\xe4";
  const Function_metadata metadata(function, algorithm);
  EXPECT_EQ(metadata.function_name, "a_function");
  EXPECT_EQ(metadata.algorithm, "RSA-PSS 1\xe4");
  EXPECT_EQ(algorithm, "rsa-Pss 1\xe4");
}

TEST(FunctionMetadata, KeepsNulBytes) {
  EXPECT_EQ(Function_metadata("f", std::string("a\0b", 3)).algorithm, std::string("A\0B", 3));
}

// A locale of one-byte letters in which \xe4 is the small letter of \xc4 and \xff that of \xdf, in
// force.
class Eight_bit_locale {
 public:
  Eight_bit_locale() {
    std::ofstream charmap(folder_ / "charmap");
    charmap << "CHARMAP\n" << std::hex << std::uppercase << std::setfill('0');
    for (int byte = 0; byte < 256; ++byte) {
      charmap << "<U" << std::setw(4) << byte << "> \\x" << std::setw(2) << byte << '\n';
    }
    charmap << "END CHARMAP\n";
    charmap.close();
    std::ofstream(folder_ / "source") << "LC_CTYPE\ntoupper (<U0061>,<U0041>);"
                                         "(<U00E4>,<U00C4>);(<U00FF>,<U00DF>)\nEND LC_CTYPE\n";
    const std::string command = "cd " + folder_.path().string() +
                                " && localedef -c --quiet -f ./charmap -i ./source ./eight_bit";
    static_cast<void>(std::system(command.c_str()));  // 1 for its warnings
    setenv("LOCPATH", folder_.path().c_str(), 1);
    is_in_force_ = std::setlocale(LC_CTYPE, "eight_bit") != nullptr;
  }
  ~Eight_bit_locale() {
    std::setlocale(LC_CTYPE, "C");
    unsetenv("LOCPATH");
  }
  Eight_bit_locale(const Eight_bit_locale &) = delete;
  Eight_bit_locale &operator=(const Eight_bit_locale &) = delete;

  [[nodiscard]] bool is_in_force() const { return is_in_force_; }

 private:
  const Temporary_folder folder_;
  bool is_in_force_ = false;
};

// A byte is taken as a signed character, so \xff is the number -1, which toupper leaves alone.
TEST(FunctionMetadata, UpperCasesByTheLocaleWithSignedBytes) {
  const Eight_bit_locale locale;
  ASSERT_TRUE(locale.is_in_force());
  EXPECT_EQ(Function_metadata("f", "a\xe4\xff").algorithm, "A\xc4\xff");
}

TEST(GetAlgorithm, KindsHaveTheirNumbers) {
  EXPECT_EQ(static_cast<int>(Algorithm_type::RSA_ALGORITHM), 1);
  EXPECT_EQ(static_cast<int>(Algorithm_type::UNSUPPORTED_ALGORITHM), 2);
}

}  // namespace
}  // namespace halvex_test
