#include <gtest/gtest.h>

#include "runtime/base/Problem.h"

namespace rt {
namespace {

String shown(const std::string& value) {
  return Problem{"memory", String(value), "must be 1 to 10"}.text();
}

// Returns `count` characters and an end. Appends, for g++ 12 warns of a sum of temporaries.
std::string row(size_t count, const std::string& end, char character = 'a') {
  std::string text(count, character);
  text += end;
  return text;
}

// Returns what is said of a value that is shown as `value`.
std::string refused(const std::string& value) {
  std::string text = "memory: '";
  text += value;
  text += "' is refused: must be 1 to 10";
  return text;
}

TEST(Problem, NamesTheFieldTheValueAndWhatWouldBeRight) {
  EXPECT_EQ(shown("abc"), "memory: 'abc' is refused: must be 1 to 10");
  EXPECT_EQ(shown(""), "memory: '' is refused: must be 1 to 10");
}

TEST(Problem, IsOneLineWithoutControlCharacters) {
  EXPECT_EQ(shown(std::string("a\n\x1b[2J\x7f\0z", 9)),
            "memory: 'a\\x0a\\x1b[2J\\x7f\\x00z' is refused: must be 1 to 10");
  EXPECT_EQ((Problem{"vnicConfig.\n.model", "x", "must\nbe"}.text()),
            "vnicConfig.\\x0a.model: 'x' is refused: must\\x0abe");
}

TEST(Problem, ShowsTheFirst64BytesOfALongValueAndKeepsItAll) {
  EXPECT_EQ(shown(row(64, "")), refused(row(64, "")));
  EXPECT_EQ(shown(row(65, "")), refused(row(64, "...")));
  EXPECT_EQ((Problem{"f", row(65, ""), "r"}.value.size()), 65U);
}

TEST(Problem, ShowsTheBeginOfALongPath) {
  EXPECT_EQ((Problem{row(65, ""), "x", "must not be"}.text()),
            row(64, "...: 'x' is refused: must not be"));
}

TEST(Problem, CutsNoCharacterApart) {
  EXPECT_EQ(shown(row(63, "\u00e9x")), refused(row(63, "...")));
  EXPECT_EQ(shown(row(62, "\u00e9x")), refused(row(62, "\u00e9...")));
  EXPECT_EQ(shown(row(70, "", '\x80')), refused("..."));
}

}  // namespace
}  // namespace rt
