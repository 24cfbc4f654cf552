// What the parser traces, in full and in order.
#include "Vm/QmpParser/fakes/ParserTest.h"

namespace Vm {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

constexpr const char* inReturn = "8 void Vm::QmpParserSm::parseQmpReturn(json_t* const&)";
constexpr const char* inStatus = "8 void Vm::QmpParserSm::parseQmpStatus(json_t* const&)";
constexpr const char* inPty = "8 void Vm::QmpParserSm::parseQmpPty(json_t* const&)";
constexpr const char* inError = "8 void Vm::QmpParserSm::parseQmpError(json_t* const&)";
constexpr const char* offZero = "9 parseQmpRequest off: 0";

struct QmpParserTraces : fakes::ParserTest {
  // What is traced while `text` is parsed.
  std::vector<std::string> tracesOf(std::string_view text) {
    rt::fakes::TraceRecorder traces;
    feed(text);
    return traces.take();
  }
  // The same for a chardev reply with this list, without what all such replies trace.
  std::vector<std::string> tracesOfChardevs(const std::string& value) {
    auto traces = tracesOf(R"({"return": )" + value + R"(, "id": "chardev"})");
    EXPECT_GE(traces.size(), 5U);
    EXPECT_EQ(traces[2], "8 parseQmpReturn got id chardev matches enum chardev");
    EXPECT_EQ(traces[3], inPty);
    EXPECT_EQ(traces.back(), offZero);
    return {traces.begin() + 4, traces.end() - 1};
  }
};

TEST_F(QmpParserTraces, OfAGreetingAreTheTextAndTheOffset) {
  EXPECT_THAT(tracesOf(R"({"QMP": {}})"),
              ElementsAre(R"(8 parseQmpRequest parsing: {"QMP": {}})", offZero));
}

TEST_F(QmpParserTraces, OfAnEventAreTheTextAndTheOffset) {
  EXPECT_THAT(tracesOf(R"({"event": "A"})"),
              ElementsAre(R"(8 parseQmpRequest parsing: {"event": "A"})", offZero));
}

TEST_F(QmpParserTraces, OfAReturnNameTheIdAndTheCommand) {
  EXPECT_THAT(tracesOf(R"({"return": {}, "id": "setlink"})"),
              ElementsAre(R"(8 parseQmpRequest parsing: {"return": {}, "id": "setlink"})", inReturn,
                          "8 parseQmpReturn got id setlink matches enum setlink", offZero));
}

TEST_F(QmpParserTraces, OfAReturnWithAnUnknownIdFail) {
  EXPECT_THAT(
      tracesOf(R"({"return": {}, "id": "x"})"),
      ElementsAre(R"(8 parseQmpRequest parsing: {"return": {}, "id": "x"})", inReturn,
                  "1 parseQmpReturn FAIL: got id x that doesn't match any enums ", offZero));
}

TEST_F(QmpParserTraces, OfAReturnWithAnIdThatIsNoTextFailWithAnEmptyId) {
  EXPECT_THAT(tracesOf(R"({"return": {}, "id": 7})"),
              ElementsAre(R"(8 parseQmpRequest parsing: {"return": {}, "id": 7})", inReturn,
                          "1 parseQmpReturn FAIL: got id  that doesn't match any enums ", offZero));
}

TEST_F(QmpParserTraces, OfAnErrorNameTheIdAndTheCommand) {
  EXPECT_THAT(tracesOf(R"({"error": {}, "id": "closefd"})"),
              ElementsAre(R"(8 parseQmpRequest parsing: {"error": {}, "id": "closefd"})", inError,
                          "8 parseQmpError got id closefd matches enum closefd", offZero));
}

TEST_F(QmpParserTraces, OfAnErrorWithAnUnknownIdFail) {
  EXPECT_THAT(tracesOf(R"({"error": {}, "id": "x"})"),
              ElementsAre(R"(8 parseQmpRequest parsing: {"error": {}, "id": "x"})", inError,
                          "1 parseQmpError FAIL: got id x that doesn't match any enums ", offZero));
}

TEST_F(QmpParserTraces, OfAnErrorWithoutIdFail) {
  EXPECT_THAT(tracesOf(R"({"error": {}})"),
              ElementsAre(R"(8 parseQmpRequest parsing: {"error": {}})", inError,
                          "1 parseQmpError FAIL: error msg without id received ", offZero));
}

TEST_F(QmpParserTraces, OfAStatusReplyAreThoseOfAReturnAndTheStatus) {
  EXPECT_THAT(
      tracesOf(R"({"return": {"running": true}, "id": "status"})"),
      ElementsAre(R"(8 parseQmpRequest parsing: {"return": {"running": true}, "id": "status"})",
                  inReturn, "8 parseQmpReturn got id status matches enum status", inStatus,
                  offZero));
}

TEST_F(QmpParserTraces, OfAStatusReplyWithoutRunningFailWithANullAddress) {
  EXPECT_THAT(tracesOf(R"({"return": {}, "id": "status"})"),
              ElementsAre(R"(8 parseQmpRequest parsing: {"return": {}, "id": "status"})", inReturn,
                          "8 parseQmpReturn got id status matches enum status", inStatus,
                          "1 parseQmpStatus FAIL: runningBoolean is not boolean 0x0", offZero));
}

TEST_F(QmpParserTraces, OfAStatusReplyWhoseRunningIsNoBooleanFailWithItsAddress) {
  EXPECT_THAT(
      tracesOf(R"({"return": {"running": 1}, "id": "status"})"),
      ElementsAre(R"(8 parseQmpRequest parsing: {"return": {"running": 1}, "id": "status"})",
                  inReturn, "8 parseQmpReturn got id status matches enum status", inStatus,
                  MatchesRegex("1 parseQmpStatus FAIL: runningBoolean is not boolean 0x[1-9a-f]"
                               "[0-9a-f]*"),
                  offZero));
}

TEST_F(QmpParserTraces, OfAChardevReplyListEntriesUpToSerial0) {
  EXPECT_THAT(
      tracesOfChardevs(R"([{"filename": "unix:m", "label": "monitor"},
                                   {"filename": "pty:/dev/pts/3", "label": "serial01"},
                                   {"filename": "vc", "label": "serial0"}])"),
      ElementsAre("8 parseQmpPty returnArray size 3", "8 parseQmpPty label:monitor filename:unix:m",
                  "8 parseQmpPty label:serial01 filename:pty:/dev/pts/3",
                  "8 parseQmpPty PTY:pty:/dev/pts/3"));
}

TEST_F(QmpParserTraces, OfAChardevReplyWithoutSerial0NameNoPty) {
  EXPECT_THAT(tracesOfChardevs(R"([{"filename": "a", "label": "b"}])"),
              ElementsAre("8 parseQmpPty returnArray size 1", "8 parseQmpPty label:b filename:a"));
}

TEST_F(QmpParserTraces, OfAnEmptyChardevReplyAreItsSize) {
  EXPECT_THAT(tracesOfChardevs("[]"), ElementsAre("8 parseQmpPty returnArray size 0"));
}

TEST_F(QmpParserTraces, OfAChardevReplyThatIsNoArrayFailWithItsAddress) {
  EXPECT_THAT(tracesOfChardevs("{}"),
              ElementsAre(MatchesRegex("1 parseQmpPty FAIL: returnArray is not array 0x[1-9a-f]"
                                       "[0-9a-f]*")));
}

TEST_F(QmpParserTraces, OfAChardevEntryWithoutAMemberFail) {
  constexpr const char* missing = "1 parseQmpPty FAIL: chardevFilename or chardevLabel NULL";
  EXPECT_THAT(tracesOfChardevs(R"([{"filename": "a"}, {"label": "serial0"}, {}, null, [], 7])"),
              ElementsAre("8 parseQmpPty returnArray size 6", missing, missing, missing, missing,
                          missing, missing));
}

TEST_F(QmpParserTraces, OfAChardevFilenameThatIsNoTextFailWithItsType) {
  EXPECT_THAT(tracesOfChardevs(R"([{"filename": {}, "label": "serial0"},
                                   {"filename": [], "label": "serial0"},
                                   {"filename": 1, "label": 1},
                                   {"filename": 1.5, "label": "serial0"},
                                   {"filename": true, "label": "serial0"},
                                   {"filename": false, "label": "serial0"},
                                   {"filename": null, "label": "serial0"}])"),
              ElementsAre("8 parseQmpPty returnArray size 7",
                          "1 parseQmpPty FAIL: chardevFilename->type 0  not a string",
                          "1 parseQmpPty FAIL: chardevFilename->type 1  not a string",
                          "1 parseQmpPty FAIL: chardevFilename->type 3  not a string",
                          "1 parseQmpPty FAIL: chardevFilename->type 4  not a string",
                          "1 parseQmpPty FAIL: chardevFilename->type 5  not a string",
                          "1 parseQmpPty FAIL: chardevFilename->type 6  not a string",
                          "1 parseQmpPty FAIL: chardevFilename->type 7  not a string"));
}

TEST_F(QmpParserTraces, OfAChardevLabelThatIsNoTextFailWithTheFilenamesType) {
  EXPECT_THAT(
      tracesOfChardevs(R"([{"filename": "a", "label": 7}, {"filename": "b", "label": {}}])"),
      ElementsAre("8 parseQmpPty returnArray size 2", "1 parseQmpPty FAIL: chardevLabel->type 2",
                  "1 parseQmpPty FAIL: chardevLabel->type 2"));
}

TEST_F(QmpParserTraces, OfSeveralMessagesShowTheRestAndEachOffset) {
  EXPECT_THAT(
      tracesOf(R"({"QMP": 1}  {"event": 2} )"),
      ElementsAre(R"(8 parseQmpRequest parsing: {"QMP": 1}  {"event": 2} )", offZero,
                  R"(8 parseQmpRequest parsing: {"event": 2} )", "9 parseQmpRequest off: 12"));
}

TEST_F(QmpParserTraces, OfAMessageWithoutAResultAreTheTextAndTheOffset) {
  EXPECT_THAT(tracesOf("{}"), ElementsAre("8 parseQmpRequest parsing: {}", offZero));
}

TEST_F(QmpParserTraces, OfALineEndTellOfAPartialText) {
  EXPECT_THAT(tracesOf("{\"QMP\": {}}\r\n"),
              ElementsAre("8 parseQmpRequest parsing: {\"QMP\": {}}\r\n", offZero,
                          "8 parseQmpRequest parsing: \r\n",
                          "8 parseQmpRequest json error  column: 0 line: 2 position: 2 source: "
                          "<string> text: '[' or '{' expected near end of file",
                          "8 parseQmpRequestjson string size: 2",
                          "8 parseQmpRequest partial json string: \r\n"));
}

TEST_F(QmpParserTraces, OfAStartShowWhatIsKept) {
  EXPECT_THAT(tracesOf(R"({"QMP")"),
              ElementsAre(R"(8 parseQmpRequest parsing: {"QMP")",
                          "8 parseQmpRequest json error  column: 6 line: 1 position: 6 source: "
                          "<string> text: ':' expected near end of file",
                          "8 parseQmpRequestjson string size: 6",
                          R"(8 parseQmpRequest partial json string: {"QMP")"));
}

TEST_F(QmpParserTraces, OfTheRestOfAMessageShowItJoinedToItsStart) {
  feed(R"({"QMP")");
  EXPECT_THAT(tracesOf(": {}}"), ElementsAre(R"(8 parseQmpRequest parsing: {"QMP": {}})", offZero));
}

TEST_F(QmpParserTraces, OfGarbageAreTheErrorAndTheLengthOfTheRest) {
  EXPECT_THAT(tracesOf(R"({"QMP": {}} garbage!)"),
              ElementsAre(R"(8 parseQmpRequest parsing: {"QMP": {}} garbage!)", offZero,
                          "8 parseQmpRequest parsing: garbage!",
                          "8 parseQmpRequest json error  column: 7 line: 1 position: 7 source: "
                          "<string> text: '[' or '{' expected near 'garbage'",
                          "8 parseQmpRequestjson string size: 8"));
}

TEST_F(QmpParserTraces, OfAnEmptyChunkTellOfAPartialText) {
  EXPECT_THAT(tracesOf(""),
              ElementsAre("8 parseQmpRequest parsing: ", HasSubstr("position: 0 source: <string>"),
                          "8 parseQmpRequestjson string size: 0",
                          "8 parseQmpRequest partial json string: "));
}

TEST_F(QmpParserTraces, OfARequestWhoseCounterIsZeroAreNone) {
  feed("{");
  rt::fakes::TraceRecorder traces;
  request->counterIs(0);
  EXPECT_THAT(traces.take(), testing::IsEmpty());
}

}  // namespace
}  // namespace Vm
