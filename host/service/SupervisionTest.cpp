// What an entry of the journal looks like.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "host/service/Supervision.h"

namespace host {
namespace {

using testing::HasSubstr;
using testing::Not;

rt::TraceRecord record(unsigned level, std::string_view message) {
  return {rt::vmTrace(), level, "Vm/File.cpp", 7, "doIt", message};
}

TEST(SupervisionByJournal, HasALineForEachField) {
  EXPECT_EQ(journalEntry(record(2, "a=b"), "web1"),
            "MESSAGE=a=b\n"
            "PRIORITY=6\n"
            "SYSLOG_IDENTIFIER=vmagentd\n"
            "CODE_FILE=Vm/File.cpp\n"
            "CODE_LINE=7\n"
            "CODE_FUNC=doIt\n"
            "VMAGENT_LEVEL=2\n"
            "VMAGENT_VM=web1\n");
}

TEST(SupervisionByJournal, OfNoVmNamesNone) {
  EXPECT_THAT(journalEntry(record(1, "a"), ""), Not(HasSubstr("VMAGENT_VM")));
}

TEST(SupervisionByJournal, IsAsGraveAsItsLevel) {
  EXPECT_THAT(journalEntry(record(1, "a"), ""), HasSubstr("PRIORITY=4\n"));
  EXPECT_THAT(journalEntry(record(9, "a"), ""), HasSubstr("PRIORITY=7\n"));
}

TEST(SupervisionByJournal, HasTheSizeOfATextOfSeveralLinesBeforeIt) {
  using namespace std::literals;
  EXPECT_THAT(journalEntry(record(1, "a\nMESSAGE=b"), ""),
              testing::StartsWith("MESSAGE\n\x0b\0\0\0\0\0\0\0a\nMESSAGE=b\nPRIORITY="s));
}

TEST(SupervisionByJournal, ShowsOthersTextAsItIs) {
  EXPECT_THAT(journalEntry(record(1, "VM \u202egnp\xff\x1b[2J"), ""),
              HasSubstr("MESSAGE=VM \\u202egnp\\xff\\x1b[2J\n"));
}

TEST(SupervisionByJournal, FitsIntoOneDatagram) {
  for (const char byte : {'x', '\xff'})
    EXPECT_LT(journalEntry(record(1, std::string(1'000'000, byte)), "").size(), 100'000U);
}

}  // namespace
}  // namespace host
