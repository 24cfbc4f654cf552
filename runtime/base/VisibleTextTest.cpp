// What of others' text reaches a terminal.
#include <gtest/gtest.h>

#include "runtime/base/VisibleText.h"

namespace rt {
namespace {

TEST(VisibleText, IsAnyTextAsItIs) {
  for (const char* text : {"", "a b", "gr\u00fc\u00df", "\u65e5\u672c\u8a9e", "\U0001f600",
                           "a\u0301", "\u05e9\u05dc\u05d5\u05dd", "\\x41"})
    EXPECT_EQ(visibleText(text), text);
}

TEST(VisibleText, HasNoControlCharactersOfAnyLength) {
  EXPECT_EQ(visibleText("a\x1b[2J\x7f\n\tb"), "a\\x1b[2J\\x7f\\x0a\\x09b");
  EXPECT_EQ(visibleText(std::string_view("a\0b", 3)), "a\\x00b");
  EXPECT_EQ(visibleText("\u0080\u009b\u009f\u00a0"), "\\xc2\\x80\\xc2\\x9b\\xc2\\x9f\u00a0");
}

TEST(VisibleText, KeepsTheControlCharactersThatAreNamed) {
  EXPECT_EQ(visibleText("a\n\tb\r\x1b", "\n\t"), "a\n\tb\\x0d\\x1b");
}

TEST(VisibleText, HasNoBytesThatAreNoText) {
  EXPECT_EQ(visibleText("a\xff\xfez"), "a\\xff\\xfez");
  EXPECT_EQ(visibleText("\xc3"), "\\xc3") << "half a character";
  EXPECT_EQ(visibleText("\xe2\x82"), "\\xe2\\x82");
  EXPECT_EQ(visibleText("\xa9z"), "\\xa9z") << "the other half";
  EXPECT_EQ(visibleText("\xc0\xaf"), "\\xc0\\xaf") << "longer than need be";
  EXPECT_EQ(visibleText("\xe0\x80\xaf"), "\\xe0\\x80\\xaf");
  EXPECT_EQ(visibleText("\xf0\x80\x80\xaf"), "\\xf0\\x80\\x80\\xaf");
  EXPECT_EQ(visibleText("\xed\xa0\x80"), "\\xed\\xa0\\x80") << "half a pair";
  EXPECT_EQ(visibleText("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80") << "past the last";
  EXPECT_EQ(visibleText("\xc3\x28"), "\\xc3(");
}

TEST(VisibleText, ReadsFromLeftToRight) {
  EXPECT_EQ(visibleText("\u202egnp.exe"), "\\u202egnp.exe");
  EXPECT_EQ(visibleText("\u061c\u200e\u200f\u2028\u2029\u202a\u202d\u2066\u2069"),
            "\\u061c\\u200e\\u200f\\u2028\\u2029\\u202a\\u202d\\u2066\\u2069");
  for (const char* text :
       {"\u061b", "\u061d", "\u200d", "\u2010", "\u2027", "\u202f", "\u2065", "\u206a"})
    EXPECT_EQ(visibleText(text), text);
}

TEST(UnfinishedLength, IsThatOfACharactersBegin) {
  for (const char* whole : {"", "a", "\u00e9", "a\u20ac", "\U0001f600", "\x80\x80\x80\x80"})
    EXPECT_EQ(unfinishedLength(whole), 0U) << whole;
  EXPECT_EQ(unfinishedLength("a\xc3"), 1U);
  EXPECT_EQ(unfinishedLength("\xe2"), 1U);
  EXPECT_EQ(unfinishedLength("\xe2\x82"), 2U);
  EXPECT_EQ(unfinishedLength("\xf0\x9f\x98"), 3U);
  EXPECT_EQ(unfinishedLength("\xff"), 0U) << "no character's begin";
  EXPECT_EQ(unfinishedLength("\xc3\xa9\xa9"), 0U);
}

}  // namespace
}  // namespace rt
