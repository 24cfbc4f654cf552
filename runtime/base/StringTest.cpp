#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <sstream>
#include <unordered_set>

#include "runtime/base/String.h"

namespace rt {
namespace {

const String withNul("a\0b", 3);

TEST(String, IsEmptyAtFirst) {
  const String text;
  EXPECT_TRUE(text.empty());
  EXPECT_EQ(text.size(), 0U);
  EXPECT_STREQ(text.charPtr(), "");
}

TEST(String, IsMadeFromEveryKindOfText) {
  EXPECT_EQ(String("abc").size(), 3U);
  EXPECT_EQ(String("abcdef", 3), "abc");
  EXPECT_EQ(String(std::string("abc")), "abc");
  EXPECT_EQ(String(std::string_view("abcdef").substr(2, 2)), "cd");
}

TEST(String, KeepsNulBytesThatItsLengthCounts) {
  EXPECT_EQ(withNul.size(), 3U);
  EXPECT_EQ(withNul[1], '\0');
  EXPECT_EQ(withNul[2], 'b');
  EXPECT_EQ(withNul.str(), std::string("a\0b", 3));
}

TEST(String, CharPtrEndsInANulThatIsNotCounted) {
  const String text("abcdef", 3);
  EXPECT_EQ(std::strlen(text.charPtr()), 3U);
  EXPECT_EQ(withNul.charPtr()[3], '\0');
}

TEST(String, GivesTheByteAtAnIndex) {
  const String text("abc");
  EXPECT_EQ(text[0], 'a');
  EXPECT_EQ(text[2], 'c');
}

TEST(String, SubstringIsFromStartOfAtMostLengthBytes) {
  const String text("abcdef");
  EXPECT_EQ(text.substr(2), "cdef");
  EXPECT_EQ(text.substr(2, 3), "cde");
  EXPECT_EQ(text.substr(4, 100), "ef");
  EXPECT_EQ(text.substr(2, 0), "");
  EXPECT_EQ(withNul.substr(1), String("\0b", 2));
}

TEST(String, SubstringAtOrPastTheEndIsEmpty) {
  const String text("abc");
  EXPECT_EQ(text.substr(3), "");
  EXPECT_EQ(text.substr(4, 1), "");
  EXPECT_EQ(text.substr(std::string::npos), "");
  EXPECT_EQ(String().substr(0), "");
}

TEST(String, PlusJoinsAndLeavesBothAsTheyWere) {
  const String left("ab");
  const String right("cd");
  EXPECT_EQ(left + right, "abcd");
  EXPECT_EQ(left, "ab");
  EXPECT_EQ(right, "cd");
}

TEST(String, PlusTakesPlainTextOnEitherSide) {
  EXPECT_EQ(String("ab") + "cd", "abcd");
  EXPECT_EQ("ab" + String("cd"), "abcd");
  EXPECT_EQ(String("ab") + std::string("cd"), "abcd");
  EXPECT_EQ((withNul + withNul).size(), 6U);
}

TEST(String, PlusEqualsAppends) {
  String text("a");
  text += String("b");
  text += "c";
  text += 'd';
  text += std::string_view("e\0", 2);
  EXPECT_EQ(text, String("abcde\0", 6));
}

TEST(String, PlusEqualsOfItselfDoublesIt) {
  String text("a text too long to be stored within a string itself;");
  text += text;
  EXPECT_EQ(text,
            "a text too long to be stored within a string itself;"
            "a text too long to be stored within a string itself;");
}

TEST(String, EqualsTheSameBytesOnly) {
  EXPECT_TRUE(String("ab") == String("ab"));
  EXPECT_FALSE(String("ab") == String("aB"));
  EXPECT_TRUE(String("ab") != String("abc"));
  EXPECT_TRUE(withNul != String("a"));
}

TEST(String, EqualsPlainTextOnEitherSide) {
  const String text("ab");
  EXPECT_TRUE(text == "ab");
  EXPECT_TRUE("ab" == text);
  EXPECT_TRUE(text != "abc");
  EXPECT_TRUE(text == std::string("ab"));
  EXPECT_TRUE(text == std::string_view("ab"));
}

TEST(String, WithANulDiffersFromThePlainTextBeforeIt) {
  EXPECT_FALSE(withNul == "a");
  EXPECT_TRUE(withNul != "a");
}

TEST(String, OrdersByBytesAndThenByLength) {
  EXPECT_TRUE(String("a") < String("b"));
  EXPECT_TRUE(String("a") < String("aa"));
  EXPECT_TRUE(String() < String("a"));
  EXPECT_FALSE(String("b") < String("a"));
  EXPECT_FALSE(String("a") < String("a"));
  EXPECT_TRUE(String("B") < String("a"));
  EXPECT_TRUE(String("z") < String("\xff"));
  EXPECT_TRUE(String("a") < withNul);
  EXPECT_TRUE(String("a") >= String("a"));
}

TEST(String, CopyIsIndependent) {
  const String original("ab");
  String copy = original;
  copy += "c";
  EXPECT_EQ(original, "ab");
  EXPECT_EQ(copy, "abc");
}

TEST(String, StreamsAllOfItsBytes) {
  std::ostringstream out;
  out << withNul;
  EXPECT_EQ(out.str(), std::string("a\0b", 3));
}

TEST(String, IsAKeyOfOrderedAndHashedContainers) {
  const std::map<String, int> ordered{{"b", 2}, {"a", 1}};
  const std::unordered_set<String> hashed{"a", "b", "a"};
  EXPECT_EQ(ordered.begin()->first, "a");
  EXPECT_EQ(hashed.size(), 2U);
  EXPECT_EQ(std::hash<String>()(String("abc")), std::hash<String>()(String("abcd", 3)));
}

}  // namespace
}  // namespace rt
