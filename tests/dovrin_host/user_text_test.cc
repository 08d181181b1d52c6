#include "dovrin_host/user_text.h"

#include <gtest/gtest.h>

#include <string>

namespace dovrin_host {
namespace {

TEST(UserText, ShortTextIsKept) {
  EXPECT_EQ(make_excerpt(""), "");
  EXPECT_EQ(make_excerpt("RSA"), "RSA");
  EXPECT_EQ(make_excerpt(std::string(32, 'x')), std::string(32, 'x'));
}

TEST(UserText, LongTextIsTruncatedAfter32CharactersAndMarked) {
  EXPECT_EQ(make_excerpt(std::string(33, 'x')), std::string(32, 'x') + " <...>");
  EXPECT_EQ(make_excerpt(std::string(1000000, 'x')), std::string(32, 'x') + " <...>");
  EXPECT_EQ(make_excerpt("abc", 2), "ab <...>");
}

TEST(UserText, CharactersAreCountedAndNeverSplit) {
  std::string thirty_two;
  for (int i = 0; i < 8; ++i) {
    thirty_two += "aé€😀";
  }
  EXPECT_EQ(make_excerpt(thirty_two), thirty_two);
  EXPECT_EQ(make_excerpt(thirty_two + "é"), thirty_two + " <...>");
}

TEST(UserText, ControlCharactersAndBidirectionalMarksAreEscaped) {
  EXPECT_EQ(make_excerpt("a\x1b[2J\n\x7f"), "a\\x1b[2J\\x0a\\x7f");
  EXPECT_EQ(make_excerpt(std::string("a\0b", 3)), "a\\x00b");
  EXPECT_EQ(make_excerpt("\xc2\x9b\xc2\x80"), "\\xc2\\x9b\\xc2\\x80");
  EXPECT_EQ(make_excerpt("\u061c\u200e\u200f"), "\\xd8\\x9c\\xe2\\x80\\x8e\\xe2\\x80\\x8f");
  EXPECT_EQ(make_excerpt("\u2028\u202a\u202e"), "\\xe2\\x80\\xa8\\xe2\\x80\\xaa\\xe2\\x80\\xae");
  EXPECT_EQ(make_excerpt("\u2066\u2069"), "\\xe2\\x81\\xa6\\xe2\\x81\\xa9");
  EXPECT_EQ(make_excerpt("\u00a0\u061b\u200d\u2027\u202f\u2065"),
            "\u00a0\u061b\u200d\u2027\u202f\u2065");
}

TEST(UserText, BytesThatAreNotUtf8AreEscapedOneByOne) {
  EXPECT_EQ(make_excerpt("\xff\x80"), "\\xff\\x80");
  EXPECT_EQ(make_excerpt("\xc3"), "\\xc3");
  EXPECT_EQ(make_excerpt("\xc3(\xe2\x82"), "\\xc3(\\xe2\\x82");
  EXPECT_EQ(make_excerpt("\xc0\xaf"), "\\xc0\\xaf");                    // overlong
  EXPECT_EQ(make_excerpt("\xe0\x80\xaf"), "\\xe0\\x80\\xaf");           // overlong
  EXPECT_EQ(make_excerpt("\xed\xa0\x80"), "\\xed\\xa0\\x80");           // a surrogate
  EXPECT_EQ(make_excerpt("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");  // above U+10FFFF
  EXPECT_EQ(make_excerpt("\xf4\x8f\xbf\xbf\xed\x9f\xbf"), "\xf4\x8f\xbf\xbf\xed\x9f\xbf");
  EXPECT_EQ(make_excerpt(std::string(33, '\xff')).size(), 32 * 4 + 6);
}

TEST(UserText, PrintableTextIsWhole) {
  EXPECT_EQ(make_printable(std::string(1000, 'x') + "\n\xff"),
            std::string(1000, 'x') + "\\x0a\\xff");
}

}  // namespace
}  // namespace dovrin_host
