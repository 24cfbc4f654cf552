#include <gmock/gmock.h>

#include "shim/decide/QmpText.h"

namespace shim::qmp {
namespace {

using testing::ElementsAre;
using testing::Pair;

TEST(QmpTextRequest, IsTakenApart) {
  const auto request = requestFrom(
      R"({ "execute": "set_link","arguments": {"name": "h0","up": true},"id": "setlink" })");
  ASSERT_TRUE(request);
  EXPECT_EQ(request->execute, "set_link");
  EXPECT_EQ(request->id, "\"setlink\"");
  EXPECT_EQ(request->arguments, R"({"name":"h0","up":true})");
  EXPECT_THAT(request->texts, ElementsAre(Pair("name", "h0")));
  EXPECT_TRUE(request->up);
}

TEST(QmpTextRequest, NeedsNeitherIdNorArguments) {
  const auto request = requestFrom(R"({"execute": "cont"})");
  ASSERT_TRUE(request);
  EXPECT_EQ(request->id, "");
  EXPECT_EQ(request->arguments, "");
  EXPECT_FALSE(request->up);
}

TEST(QmpTextRequest, IsNothingElse) {
  for (const char* const text : {"", "x", "{}", "[]", "7", R"({"execute": 7})", R"({"return": {}})",
                                 R"({"execute": "a"} {})", R"({"execute": "a", "execute": "b"})",
                                 R"({"execute": "a\u0000"})"})
    EXPECT_FALSE(requestFrom(text)) << text;
}

TEST(QmpTextRequest, IsNotNestedDeeply) {
  const auto nested = [](size_t depth) {
    return R"({"execute": "a", "id": )" + std::string(depth, '[') + std::string(depth, ']') + "}";
  };
  EXPECT_TRUE(requestFrom(nested(60)));
  EXPECT_FALSE(requestFrom(nested(64)));
  EXPECT_FALSE(requestFrom(nested(1'000'000)));
  EXPECT_TRUE(
      requestFrom(R"({"execute": "[[[[[[\"[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[["})"));
}

TEST(Saying, IsOfOneKind) {
  EXPECT_EQ(sayingFrom(R"({"QMP": {}})")->kind, Saying::Kind::greeting);
  EXPECT_EQ(sayingFrom(R"({"event": "STOP"})")->kind, Saying::Kind::event);
  EXPECT_EQ(sayingFrom(R"({"return": 1, "id": 2})")->kind, Saying::Kind::result);
  EXPECT_EQ(sayingFrom(R"({"error": {}, "id": 2})")->kind, Saying::Kind::refusal);
}

TEST(Saying, HasANumberOfOursOrNone) {
  EXPECT_EQ(sayingFrom(R"({"return": {}, "id": 7})")->id, 7U);
  EXPECT_EQ(sayingFrom(R"({"return": {}, "id": -1})")->id, std::nullopt);
  EXPECT_EQ(sayingFrom(R"({"return": {}, "id": "7"})")->id, std::nullopt);
  EXPECT_EQ(sayingFrom(R"({"return": {}})")->id, std::nullopt);
}

TEST(Saying, KeepsItsValueAsQemuWritesIt) {
  EXPECT_EQ(sayingFrom(R"({"return": {"b": [1, null], "a": "\u00e9"}, "id": 7})")->value,
            "{\"b\": [1, null], \"a\": \"\xc3\xa9\"}");
  const auto refusal = sayingFrom(R"({"id": 1, "error": {"class": "C", "desc": "no"}})");
  EXPECT_EQ(refusal->value, R"({"class": "C", "desc": "no"})");
  EXPECT_EQ(refusal->description, "no");
}

TEST(Saying, HasADescriptionOfSomeLengthWhateverQemuSays) {
  const std::string said =
      std::string(longestDescription - 1, 'Q') + "\xc3\xa9" + std::string(99, 'Q');
  const auto refusal = sayingFrom(R"({"error": {"class": "C", "desc": ")" + said + R"("}})");
  EXPECT_EQ(refusal->description, std::string(longestDescription - 1, 'Q') + "...");
}

TEST(Saying, HasItsValueAsItStandsThereWhereThatIsAll) {
  const auto value = [](const char* text) { return sayingFrom(text)->value; };
  EXPECT_EQ(value(R"({"return": {"a": "\u00e9}"}})"), R"({"a": "\u00e9}"})");
  EXPECT_EQ(value(R"({"return": 7})"), "7");
  EXPECT_EQ(value(R"({"return":{"a":1}})"), R"({"a": 1})") << "not as QEMU writes";
  EXPECT_EQ(value(R"({"return": {"a": 1}} )"), R"({"a": 1})");
  EXPECT_EQ(value(R"({"return": {}, "timestamp": 1})"), "{}");
}

TEST(Saying, IsNothingElse) {
  for (const char* const text : {"", "{}", "[]", "{\"return\"}", "\xff", R"({"execute": "a"})"})
    EXPECT_FALSE(sayingFrom(text)) << text;
}

TEST(QmpTextLine, IsOneLineWhateverIsInIt) {
  EXPECT_EQ(requestLine("a\"b\n", "{}", 5),
            "{\"execute\":\"a\\\"b\\n\",\"arguments\":{},\"id\":5}\n");
  EXPECT_EQ(requestLine("quit", "", std::nullopt), "{\"execute\":\"quit\"}\n");
  EXPECT_EQ(
      errorLine("\"i\"", "a\r\nb"),
      "{\"id\": \"i\", \"error\": {\"class\": \"GenericError\", \"desc\": \"a\\r\\nb\"}}\r\n");
  EXPECT_EQ(returnLine("7"), "{\"return\": {}, \"id\": 7}\r\n");
}

TEST(QmpTextQuoted, IsEmptyForWhatIsNoText) {
  EXPECT_EQ(quoted("\xff"), "\"\"");
  EXPECT_EQ(quoted("a\\"), "\"a\\\\\"");
}

TEST(FileNames, ReplaceThoseOfTheirLabels) {
  EXPECT_EQ(withFileNames(R"([{"filename": "unix:", "label": "a"}, {"label": "b"}, 7])",
                          {{"a", "x"}, {"b", "y"}, {"c", "z"}}),
            R"([{"filename": "x", "label": "a"}, {"label": "b", "filename": "y"}, 7])");
}

TEST(FileNames, AreNeverQemusToChoose) {
  EXPECT_EQ(withFileNames(R"([{"filename": "pty:/dev/pts/0", "label": "ax"}])", {{"a", "x"}}),
            "[]");
  EXPECT_EQ(withFileNames("{}", {{"a", "x"}}), "[]");
}

TEST(ScreenViewers, AreCountedOfAllServers) {
  EXPECT_EQ(screenViewers(R"([{"clients": [{"family": "unix"}, {"family": "ipv4"}], "id": "a"},)"
                          R"( {"clients": [{"family": "unix"}], "id": "b"}])"),
            3U);
  for (const char* none : {"[]", "{}", "x", R"([{"id": "a"}])", R"([{"clients": 7}, 8])"})
    EXPECT_EQ(screenViewers(none), 0U) << none;
}

}  // namespace
}  // namespace shim::qmp
