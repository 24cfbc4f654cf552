// JSON as it is read and shown.
#include <gmock/gmock.h>

#include "ctl/line/Json.h"

namespace ctl {
namespace {

using testing::ElementsAre;

TEST(JsonText, IsQuotedSoThatItReadsTheSame) {
  const rt::String text("a\"b\\c\n\x01 \xc3\xa4 /");
  EXPECT_EQ(quoted(text), "\"a\\\"b\\\\c\\u000a\\u0001 \xc3\xa4 /\"");
  const auto read = JsonValue::parse("{\"x\":" + quoted(text) + "}");
  ASSERT_TRUE(read);
  EXPECT_EQ(read->text("x"), text);
}

TEST(JsonText, OfBytesThatAreNoTextStaysJson) {
  EXPECT_EQ(quoted("a\xff"), "\"a\xef\xbf\xbd\"");
  EXPECT_TRUE(isUtf8(""));
  EXPECT_TRUE(isUtf8("\xc3\xa4"));
  EXPECT_FALSE(isUtf8("\xc3"));
}

TEST(JsonText, IsIndentedOutsideOfQuotesOnly) {
  EXPECT_EQ(indented(R"({"a":{},"b":[],"c":[1,{"d":"x,{}\":\\"}]})"),
            "{\n  \"a\": {},\n  \"b\": [],\n  \"c\": [\n    1,\n    {\n"
            "      \"d\": \"x,{}\\\":\\\\\"\n    }\n  ]\n}\n");
}

TEST(JsonValueTest, HasMembersOfTheKindAskedForOnly) {
  const auto value = JsonValue::parse(R"({"t":"x","n":7,"b":false,"r":1.5,"o":{"k":1}})");
  ASSERT_TRUE(value);
  EXPECT_EQ(value->text("t"), "x");
  EXPECT_EQ(value->number("n"), 7);
  EXPECT_EQ(value->boolean("b"), false);
  EXPECT_EQ(value->text("n"), std::nullopt);
  EXPECT_EQ(value->number("r"), std::nullopt);
  EXPECT_EQ(value->boolean("missing"), std::nullopt);
  EXPECT_EQ(value->member("o")->dump(), R"({"k":1})");
  EXPECT_THAT(value->names(), ElementsAre("t", "n", "b", "r", "o"));
}

TEST(JsonValueTest, OfAnotherKindHasNoMembers) {
  const auto list = JsonValue::parse("[1,[2]]");
  ASSERT_TRUE(list);
  EXPECT_TRUE(list->isArray());
  EXPECT_FALSE(list->isObject());
  EXPECT_EQ(list->text("x"), std::nullopt);
  EXPECT_EQ(list->elements().size(), 2U);
  EXPECT_EQ(list->elements()[1].dump(), "[2]");
}

TEST(JsonValueTest, SaysWhereTextIsNoJson) {
  rt::String error;
  EXPECT_FALSE(JsonValue::parse("{\n  oops", &error));
  EXPECT_EQ(error.substr(0, 6), "line 2");
  EXPECT_FALSE(JsonValue::parse(""));
}

TEST(JsonOnATerminal, IsTheSameDocumentAndShownAsItIs) {
  EXPECT_EQ(onTerminal("{\"a\":\"\xc3\xa4 \\\"\u202e\u200f\u009b\x7f\xff\"}"),
            "{\"a\":\"\xc3\xa4 \\\"\\u202e\\u200f\\u009b\\u007f\\ufffd\"}");
  const auto back = JsonValue::parse(onTerminal("{\"a\":\"\u202e\u009b\x7f\"}"));
  EXPECT_EQ(back->text("a"), "\u202e\u009b\x7f");
  EXPECT_EQ(indented("[\"\u202e\"]"), "[\n  \"\\u202e\"\n]\n");
}

}  // namespace
}  // namespace ctl
