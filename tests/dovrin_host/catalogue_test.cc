#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "dovrin_host/error_log.h"

namespace dovrin_host {
namespace {

constexpr int first_code = 13915;
constexpr int last_code = 13929;

std::vector<Catalogue_entry> entries() {
  std::vector<Catalogue_entry> all;
  for (int code = first_code; code <= last_code; ++code) {
    const Catalogue_entry *const entry = find_catalogue_entry(code);
    EXPECT_NE(entry, nullptr) << code;
    if (entry != nullptr) {
      all.push_back(*entry);
    }
  }
  return all;
}

// The conversions of a template, in their order. Each ends with its letter.
std::string conversions(const std::string &text) {
  std::string found;
  for (std::size_t at = text.find('%'); at != std::string::npos; at = text.find('%', at + 1)) {
    found.append(found.empty() ? "" : " ");
    found.append(text, at, text.find_first_of("sdu", at) - at + 1);
  }
  return found;
}

TEST(Catalogue, EveryTemplateHasTheConversionsThatComponentsPass) {
  const std::map<int, std::string> expected{
      {13915, "%s"},
      {13916, "%s"},
      {13917, "%s"},
      {13918, "%s"},
      {13919, "%s %s"},
      {13920, "%.32s %s"},
      {13921, "%llu %s %.32s %lld %lld"},
      {13922, "%lld %.32s %s"},
      {13923, "%.32s %s"},
      {13924, "%llu %s %.32s %lld"},
      {13925, "%s %.32s %llu"},
      {13926, "%s %.32s %llu"},
      {13927, "%s %.32s %.32s"},
      {13928, "%s %.32s %s"},
      {13929, "%s %.32s %llu %llu"},
  };
  std::map<int, std::string> found;
  for (const Catalogue_entry &entry : entries()) {
    found.emplace(entry.code, conversions(entry.template_text));
  }
  EXPECT_EQ(found, expected);
}

TEST(Catalogue, EveryCodeIsFoundWithItsOwnEntry) {
  for (int code = first_code; code <= last_code; ++code) {
    ASSERT_NE(find_catalogue_entry(code), nullptr) << code;
    EXPECT_EQ(find_catalogue_entry(code)->code, code);
  }
}

TEST(Catalogue, CodesBesideTheRangeAreUnknown) {
  for (const int code : {0, -1, 13914, 13930, 2147483647}) {
    EXPECT_EQ(find_catalogue_entry(code), nullptr) << code;
  }
}

TEST(Catalogue, SymbolsAreDistinctUpperCaseNames) {
  std::set<std::string> symbols;
  for (const Catalogue_entry &entry : entries()) {
    const std::string symbol = entry.symbol;
    EXPECT_EQ(symbol.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ_"), std::string::npos) << symbol;
    EXPECT_TRUE(symbols.insert(symbol).second) << symbol;
  }
}

TEST(Catalogue, EveryHintIsOneSentence) {
  for (const Catalogue_entry &entry : entries()) {
    for (const char *const function : {"asymmetric_decrypt", "asymmetric_verify", "another", ""}) {
      const std::string hint = find_hint(entry.code, function);
      ASSERT_FALSE(hint.empty());
      EXPECT_EQ(hint.find(". "), std::string::npos) << hint;
      EXPECT_EQ(hint.back(), '.') << hint;
      EXPECT_EQ(hint.find('%'), std::string::npos) << hint;
    }
  }
}

TEST(Catalogue, HintIsTheEntrysUnlessTheFunctionHasItsOwn) {
  EXPECT_STREQ(find_hint(13928, "asymmetric_sign"), find_catalogue_entry(13928)->hint);
  EXPECT_STREQ(find_hint(13928, "asymmetric_verify"),
               "The signature does not belong to this content, key and digest type, or the key is "
               "not readable.");
  EXPECT_STREQ(find_hint(1, "asymmetric_verify"), "");
}

}  // namespace
}  // namespace dovrin_host
