// The small parts: JSON, tables, fields, output.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <cerrno>
#include <ostream>

#include "ctl/line/Exit.h"
#include "ctl/line/Fields.h"
#include "ctl/line/Json.h"
#include "ctl/line/Table.h"
#include "ctl/machine/OutputBuffer.h"
#include "model/VmFields.h"

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

TEST(JsonOnATerminal, IsTheSameDocumentAndShownAsItIs) {
  EXPECT_EQ(onTerminal("{\"a\":\"\xc3\xa4 \\\"\u202e\u200f\u009b\x7f\xff\"}"),
            "{\"a\":\"\xc3\xa4 \\\"\\u202e\\u200f\\u009b\\u007f\\ufffd\"}");
  const auto back = JsonValue::parse(onTerminal("{\"a\":\"\u202e\u009b\x7f\"}"));
  EXPECT_EQ(back->text("a"), "\u202e\u009b\x7f");
  EXPECT_EQ(indented("[\"\u202e\"]"), "[\n  \"\\u202e\"\n]\n");
}

TEST(Visible, IsTextWithoutControlCharactersOfAnyLength) {
  EXPECT_EQ(visible("a\x1b\x7f\n"), "a\\x1b\\x7f\\x0a");
  EXPECT_EQ(visible("\xc2\x9b"
                    "2J"),
            "\\xc2\\x9b2J");
  EXPECT_EQ(visible("\xc2\xa0\xc3\xa4\xc2\u202e"), "\xc2\xa0\xc3\xa4\\xc2\\u202e");
}

TEST(Memory, IsReadInMebibytesWithAnyUnit) {
  EXPECT_EQ(model::mebibytesOf("256"), 256U);
  EXPECT_EQ(model::mebibytesOf("256M"), 256U);
  EXPECT_EQ(model::mebibytesOf("2g"), 2048U);
  EXPECT_EQ(model::mebibytesOf("2048K"), 2U);
  EXPECT_EQ(model::mebibytesOf("1.5G"), 1536U);
  EXPECT_EQ(model::mebibytesOf("0.25g"), 256U);
  EXPECT_EQ(model::mebibytesOf("512.0"), 512U);
  EXPECT_EQ(model::mebibytesOf("4294967296K"), 4194304U);
  EXPECT_EQ(model::mebibytesOf("0"), 0U);
  EXPECT_EQ(model::mebibytesOf("4294967295"), 4294967295U);
}

TEST(Memory, ThatIsNoNumberOfMebibytesIsRefused) {
  for (const char* text : {"",
                           "M",
                           "-1",
                           "+1",
                           " 1",
                           "1 M",
                           "1.5",
                           "1.1G",
                           "1.",
                           ".5G",
                           "1.5.5G",
                           "1e3",
                           "inf",
                           "0x10",
                           "1000K",
                           "1T",
                           "4294967296",
                           "17592186044416M",
                           "18446744073709551615G",
                           "99999999999999999999"})
    EXPECT_EQ(model::mebibytesOf(text), std::nullopt) << text;
}

TEST(NextKey, FollowsTheHighest) {
  const auto vm = rt::make<Vm::VmConfig>("web1");
  EXPECT_EQ(nextKey(*vm), "nic00");
  vm->vnicConfigIs("card");  // comes before all
  EXPECT_EQ(nextKey(*vm), "nic00");
  vm->vnicConfigIs("nic07");
  vm->vnicConfigIs("nic02");
  EXPECT_EQ(nextKey(*vm), "nic08");
  vm->vnicConfigIs("wan");
  EXPECT_THROW(nextKey(*vm), Refusal);
}

TEST(Output, IsWrittenWhole) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  fcntl(ends[1], F_SETPIPE_SZ, 1024 * 1024);
  const std::string big(200'000, 'x');
  {
    OutputBuffer buffer(ends[1]);
    std::ostream out(&buffer);
    out << "begin " << big << " end";
    out.flush();
    EXPECT_EQ(buffer.error(), 0);
  }
  close(ends[1]);
  std::string read(big.size() + 100, '\0');
  size_t size = 0;
  for (ssize_t n = 0; (n = ::read(ends[0], read.data() + size, read.size() - size)) > 0;)
    size += static_cast<size_t>(n);
  close(ends[0]);
  EXPECT_EQ(read.substr(0, size), "begin " + big + " end");
}

TEST(Output, RemembersWhyItCouldNotBeWritten) {
  OutputBuffer buffer(-1);
  std::ostream out(&buffer);
  out << "text";
  EXPECT_EQ(buffer.error(), 0);
  out.flush();
  EXPECT_EQ(buffer.error(), EBADF);
  EXPECT_FALSE(out);
}

}  // namespace
}  // namespace ctl
