// Tables, and text that is shown.
#include <gmock/gmock.h>

#include "ctl/line/Table.h"

namespace ctl {
namespace {

TEST(TableTest, AlignsByCharactersAndLeavesNoBlanksAtTheEnd) {
  Table table({"A", "B"});
  table.row({"\xc3\xa4\xc3\xb6\xc3\xbc", ""});
  table.row({"x", "yy"});
  EXPECT_EQ(table.text({}), "A    B\n\xc3\xa4\xc3\xb6\xc3\xbc  -\nx    yy\n");
}

TEST(TableTest, HasOneLongLineForALongCell) {
  const std::string longName(5000, 'x');
  Table table({"NAME", "STATE"});
  table.row({rt::String(longName), "on"});
  table.row({"web1", "off"});
  EXPECT_EQ(table.text({}), "NAME  STATE\n" + longName + "  on\nweb1  off\n");
  (void)table.takeText({});
  table.row({"db", "on"});
  EXPECT_EQ(table.text({}), "db    on\n") << "nor is what comes later";
}

TEST(TableTest, CutsTheLastCellWhereTheTerminalEnds) {
  Table table({"NAME", "TEXT"});
  table.row({"web1", "\xc3\xa4\xc3\xb6 is a long story"});
  EXPECT_EQ(table.text({.columns = 18}), "NAME  TEXT\nweb1  \xc3\xa4\xc3\xb6 is a l...\n");
  EXPECT_EQ(table.text({.columns = 24}), table.text({}));
}

TEST(TableTest, CutsNothingWhereTheLastCellHasNoRoom) {
  Table table({"NAME", "TEXT"});
  table.row({"web1", "\xc3\xa4\xc3\xb6 is a long story"});
  for (const size_t columns : {1U, 5U, 17U})
    EXPECT_EQ(table.text({.columns = columns}), table.text({})) << columns;
}

TEST(Cut, TakesNoMoreCharactersThanThereIsRoomFor) {
  const rt::String text("\xc3\xa4\xc3\xb6\xc3\xbc\xc3\xa4\xc3\xb6");
  EXPECT_EQ(cut(text, 5), text);
  EXPECT_EQ(cut(text, 4), "\xc3\xa4...");
  EXPECT_EQ(cut(text, 2), "..");
}

TEST(TableTest, ColoursCountForNoWidth) {
  Table table({"A", "B"});
  table.row({{"on", Ink::good}, "x"});
  table.row({"off", {"y", Ink::busy}});
  EXPECT_EQ(table.text({.colours = true}),
            "A    B\n\x1b[32mon\x1b[0m   x\noff  \x1b[33my\x1b[0m\n");
}

TEST(Visible, IsTextWithoutControlCharactersOfAnyLength) {
  EXPECT_EQ(visible("a\x1b\x7f\n"), "a\\x1b\\x7f\\x0a");
  EXPECT_EQ(visible("\xc2\x9b"
                    "2J"),
            "\\xc2\\x9b2J");
  EXPECT_EQ(visible("\xc2\xa0\xc3\xa4\xc2\u202e"), "\xc2\xa0\xc3\xa4\\xc2\\u202e");
}

}  // namespace
}  // namespace ctl
