#include <gtest/gtest.h>

#include "runtime/base/Problem.h"

namespace rt {
namespace {

String shown(const std::string& value) {
  return Problem{"memory", String(value), "must be 1 to 10"}.text();
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
  EXPECT_EQ(shown(std::string(64, 'a')),
            "memory: '" + std::string(64, 'a') + "' is refused: must be 1 to 10");
  EXPECT_EQ(shown(std::string(65, 'a')),
            "memory: '" + std::string(64, 'a') + "...' is refused: must be 1 to 10");
  EXPECT_EQ((Problem{"f", std::string(65, 'a'), "r"}.value.size()), 65U);
}

TEST(Problem, ShowsTheBeginOfALongPath) {
  EXPECT_EQ((Problem{String(std::string(65, 'a')), "x", "must not be"}.text()),
            std::string(64, 'a') + "...: 'x' is refused: must not be");
}

TEST(Problem, CutsNoCharacterApart) {
  EXPECT_EQ(shown(std::string(63, 'a') + "\u00e9x"),
            "memory: '" + std::string(63, 'a') + "...' is refused: must be 1 to 10");
  EXPECT_EQ(shown(std::string(62, 'a') + "\u00e9x"),
            "memory: '" + std::string(62, 'a') + "\u00e9...' is refused: must be 1 to 10");
  EXPECT_EQ(shown(std::string(70, '\x80')), "memory: '...' is refused: must be 1 to 10");
}

}  // namespace
}  // namespace rt
