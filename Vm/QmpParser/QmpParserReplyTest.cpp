// Which result a message has.
#include <array>

#include "Vm/QmpParser/fakes/ParserTest.h"

namespace Vm {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct QmpParserReply : fakes::ParserTest {};

TEST_F(QmpParserReply, GreetingIsHello) {
  EXPECT_THAT(resultsOf(R"({"QMP": {"version": {}, "capabilities": ["oob"]}})"),
              ElementsAre("hello qmpTypeQmp hello"));
}

TEST_F(QmpParserReply, EventIsAnEventOfNoCommand) {
  EXPECT_THAT(resultsOf(R"({"timestamp": {"seconds": 1, "microseconds": 2}, "event": "STOP"})"),
              ElementsAre("event qmpTypeEvent invalid"));
}

TEST_F(QmpParserReply, EventWithTheIdOfACommandIsStillOfNoCommand) {
  EXPECT_THAT(resultsOf(R"({"event": "STOP", "id": "cont"})"),
              ElementsAre("event qmpTypeEvent invalid"));
}

TEST_F(QmpParserReply, ErrorGoesBeforeAllOtherKeys) {
  EXPECT_THAT(resultsOf(R"({"event": "E", "QMP": {}, "return": {}, "error": {}, "id": "cont"})"),
              ElementsAre("contError qmpTypeError cont"));
}

TEST_F(QmpParserReply, ReturnGoesBeforeGreetingAndEvent) {
  EXPECT_THAT(resultsOf(R"({"event": "E", "QMP": {}, "return": {}, "id": "cont"})"),
              ElementsAre("cont qmpTypeReturn cont"));
}

TEST_F(QmpParserReply, GreetingGoesBeforeEvent) {
  EXPECT_THAT(resultsOf(R"({"event": "E", "QMP": {}})"), ElementsAre("hello qmpTypeQmp hello"));
}

TEST_F(QmpParserReply, KeyThatIsNullIsPresent) {
  EXPECT_THAT(resultsOf(R"({"error": null, "return": {}, "id": "cont"})"),
              ElementsAre("contError qmpTypeError cont"));
  EXPECT_THAT(resultsOf(R"({"return": null, "QMP": {}, "id": "cont"})"),
              ElementsAre("cont qmpTypeReturn cont"));
  EXPECT_THAT(resultsOf(R"({"QMP": null, "event": "E"})"), ElementsAre("hello qmpTypeQmp hello"));
  EXPECT_THAT(resultsOf(R"({"event": null})"), ElementsAre("event qmpTypeEvent invalid"));
}

TEST_F(QmpParserReply, KeysInsideAnotherValueDoNotCount) {
  EXPECT_THAT(resultsOf(R"({"data": {"error": {}, "return": {}, "QMP": {}, "event": "E"}})"),
              IsEmpty());
  EXPECT_THAT(resultsOf(R"({"return": {"error": {}, "id": "status"}, "id": "cont"})"),
              ElementsAre("cont qmpTypeReturn cont"));
}

TEST_F(QmpParserReply, WithNoneOfTheFourKeysHasNoResult) {
  EXPECT_THAT(resultsOf(R"({"id": "cont", "data": {}})"), IsEmpty());
  EXPECT_THAT(resultsOf("{}"), IsEmpty());
  EXPECT_EQ(response->counter(), 0U);
  EXPECT_EQ(unparsed(), "");
}

TEST_F(QmpParserReply, ArrayAtTheTopHasNoResultAndWhatFollowsIsParsed) {
  EXPECT_THAT(resultsOf(R"([{"event": "E"}] {"QMP": {}})"), ElementsAre("hello qmpTypeQmp hello"));
}

TEST_F(QmpParserReply, OfARepeatedKeyTheLastCounts) {
  EXPECT_THAT(resultsOf(R"({"return": {}, "id": "cont", "id": "getfd"})"),
              ElementsAre("getfd qmpTypeReturn getfd"));
}

// The commands whose reply says no more than that it came.
class PlainCommand : public fakes::ParserTest, public testing::WithParamInterface<const char*> {};

TEST_P(PlainCommand, ReturnIsNamedAfterTheCommand) {
  const std::string id = GetParam();
  EXPECT_THAT(resultsOf(R"({"return": {}, "id": ")" + id + R"("})"),
              ElementsAre(id + " qmpTypeReturn " + id));
}

TEST_P(PlainCommand, ReturnMayHoldAnyValue) {
  const std::string id = GetParam();
  const std::string expected = id + " qmpTypeReturn " + id;
  for (const char* const value : {"null", "false", "[]", "\"\"", "0", R"({"running": true})"})
    EXPECT_THAT(resultsOf(rt::format(R"({"id": "%s", "return": %s})", id.c_str(), value)),
                ElementsAre(expected));
}

INSTANTIATE_TEST_SUITE_P(Qmp, PlainCommand,
                         testing::Values("enter", "cont", "netdev", "setlink", "getfd", "closefd"),
                         [](const auto& command) { return std::string(command.param); });

// All commands.
class AnyCommand : public fakes::ParserTest, public testing::WithParamInterface<const char*> {};

TEST_P(AnyCommand, ErrorIsNamedAfterTheCommand) {
  const std::string id = GetParam();
  EXPECT_THAT(resultsOf(R"({"id": ")" + id + R"(", "error": {"class": "C", "desc": "D"}})"),
              ElementsAre(id + "Error qmpTypeError " + id));
}

INSTANTIATE_TEST_SUITE_P(Qmp, AnyCommand,
                         testing::Values("enter", "status", "cont", "chardev", "netdev", "setlink",
                                         "getfd", "closefd"),
                         [](const auto& command) { return std::string(command.param); });

// As JSON: text that is no command's id, and values that are no text.
constexpr std::array unknownIds{R"("hello")", R"("invalid")", R"("capabilities")",
                                R"("Cont")",  R"("cont ")",   R"(" cont")",
                                R"("contt")", R"("con")",     R"("")",
                                "7",          "2.5",          "null",
                                "true",       "{}",           R"({"id": "cont"})",
                                "[]",         R"(["cont"])"};

TEST_F(QmpParserReply, ReturnWithAnUnknownIdIsAReturnErrorOfNoCommand) {
  for (const std::string id : unknownIds)
    EXPECT_THAT(resultsOf(R"({"return": {"running": true}, "id": )" + id + "}"),
                ElementsAre("returnError qmpTypeReturn invalid"))
        << id;
}

TEST_F(QmpParserReply, ErrorWithAnUnknownIdIsAnUnknownErrorOfNoCommand) {
  for (const std::string id : unknownIds)
    EXPECT_THAT(resultsOf(R"({"error": {}, "id": )" + id + "}"),
                ElementsAre("unknownError qmpTypeError invalid"))
        << id;
}

TEST_F(QmpParserReply, ErrorWithoutIdIsAnErrorOfNoCommand) {
  EXPECT_THAT(resultsOf(R"({"error": {"class": "GenericError", "desc": "JSON parse error"}})"),
              ElementsAre("error qmpTypeError invalid"));
}

TEST_F(QmpParserReply, ErrorWithAReturnNeedsNoId) {
  EXPECT_THAT(resultsOf(R"({"error": {}, "return": {}})"),
              ElementsAre("error qmpTypeError invalid"));
}

TEST_F(QmpParserReply, IdMayBeWrittenWithEscapes) {
  EXPECT_THAT(resultsOf(R"({"return": {}, "id": "\u0063ont"})"),
              ElementsAre("cont qmpTypeReturn cont"));
}

using QmpParserReplyDeathTest = QmpParserReply;

TEST_F(QmpParserReplyDeathTest, ReturnWithoutIdEndsTheProcess) {
  EXPECT_DEATH(feed(R"({"return": {}})"),
               "assertion failed: idObj != __null && returnObj != __null\n");
}

TEST_F(QmpParserReplyDeathTest, ReturnWithAnIdOnlyInsideItEndsTheProcess) {
  EXPECT_DEATH(feed(R"({"return": {"id": "cont"}})"),
               "assertion failed: idObj != __null && returnObj != __null\n");
}

struct QmpStatusReply : fakes::ParserTest {
  fakes::Results resultsOfReturn(const std::string& value) {
    return resultsOf(R"({"return": )" + value + R"(, "id": "status"})");
  }
};

TEST_F(QmpStatusReply, OfARunningGuestIsRunning) {
  EXPECT_THAT(resultsOfReturn(R"({"status": "running", "singlestep": false, "running": true})"),
              ElementsAre("Running qmpTypeReturn status"));
}

TEST_F(QmpStatusReply, OfAGuestThatDoesNotRunIsStopped) {
  EXPECT_THAT(resultsOfReturn(R"({"status": "prelaunch", "singlestep": false, "running": false})"),
              ElementsAre("Stopped qmpTypeReturn status"));
}

TEST_F(QmpStatusReply, HasNoResultWhenRunningIsNoBoolean) {
  for (const std::string value : {"1", "0", "null", R"("true")", "[true]", R"({"running": true})"})
    EXPECT_THAT(resultsOfReturn(R"({"running": )" + value + "}"), IsEmpty()) << value;
  EXPECT_EQ(response->counter(), 0U);
}

TEST_F(QmpStatusReply, HasNoResultWithoutRunning) {
  for (const std::string value : {"{}", "null", "true", "[]", R"("running")", R"([{"running":1}])"})
    EXPECT_THAT(resultsOfReturn(value), IsEmpty()) << value;
  EXPECT_EQ(response->counter(), 0U);
}

TEST_F(QmpStatusReply, WithoutAResultLeavesTheNextMessageToBeParsed) {
  EXPECT_THAT(resultsOf(R"({"return": {}, "id": "status"}{"return": {}, "id": "cont"})"),
              ElementsAre("cont qmpTypeReturn cont"));
}

struct QmpChardevReply : fakes::ParserTest {
  fakes::Results resultsOfReturn(const std::string& value) {
    return resultsOf(R"({"return": )" + value + R"(, "id": "chardev"})");
  }
};

TEST_F(QmpChardevReply, IsTheFilenameOfSerial0) {
  EXPECT_THAT(resultsOfReturn(R"([{"filename": "unix:m", "label": "monitor"},
                                  {"filename": "pty:/dev/pts/3", "label": "serial0"},
                                  {"filename": "vc", "label": "parallel0"}])"),
              ElementsAre("pty:/dev/pts/3 qmpTypeReturn chardev"));
}

TEST_F(QmpChardevReply, TakesALabelThatBeginsWithSerial0) {
  for (const std::string label : {"serial0", "serial01", "serial0-base", "serial0 "})
    EXPECT_THAT(resultsOfReturn(R"([{"filename": "a", "label": ")" + label +
                                R"("}, {"filename": "b", "label": "c"}])"),
                ElementsAre("a qmpTypeReturn chardev"))
        << label;
}

TEST_F(QmpChardevReply, TakesNoOtherLabelForSerial0) {
  for (const std::string label : {"serial", "serial1", "Serial0", " serial0", "charserial0", ""})
    EXPECT_THAT(resultsOfReturn(R"([{"filename": "a", "label": ")" + label +
                                R"("}, {"filename": "b", "label": "serial0"}])"),
                ElementsAre("b qmpTypeReturn chardev"))
        << label;
}

TEST_F(QmpChardevReply, OfSeveralSerial0TakesTheFirst) {
  EXPECT_THAT(resultsOfReturn(R"([{"filename": "a", "label": "serial0"},
                                  {"filename": "b", "label": "serial0"}])"),
              ElementsAre("a qmpTypeReturn chardev"));
}

TEST_F(QmpChardevReply, WithoutSerial0IsTheLastFilename) {
  EXPECT_THAT(resultsOfReturn(R"([{"filename": "a", "label": "monitor"},
                                  {"filename": "b", "label": "parallel0"}])"),
              ElementsAre("b qmpTypeReturn chardev"));
}

TEST_F(QmpChardevReply, OfAnEmptyListIsEmpty) {
  EXPECT_THAT(resultsOfReturn("[]"), ElementsAre(" qmpTypeReturn chardev"));
}

TEST_F(QmpChardevReply, IsEmptyWhenTheLastFilenameIsMissingOrNoText) {
  for (const std::string last : {R"({"label": "z"})", R"({"filename": 7, "label": "z"})",
                                 R"({"filename": null, "label": "z"})", "{}", "null", "7", "[]"})
    EXPECT_THAT(resultsOfReturn(R"([{"filename": "a", "label": "monitor"}, )" + last + "]"),
                ElementsAre(" qmpTypeReturn chardev"))
        << last;
}

TEST_F(QmpChardevReply, IsTheLastFilenameAlsoWhenItsLabelIsMissingOrNoText) {
  for (const std::string last :
       {R"({"filename": "z"})", R"({"filename": "z", "label": 7})",
        R"({"filename": "z", "label": null})", R"({"filename": "z", "label": ["serial0"]})"})
    EXPECT_THAT(resultsOfReturn(R"([{"filename": "a", "label": "monitor"}, )" + last + "]"),
                ElementsAre("z qmpTypeReturn chardev"))
        << last;
}

TEST_F(QmpChardevReply, PassesOverBadEntriesOnTheWayToSerial0) {
  EXPECT_THAT(resultsOfReturn(R"([{}, null, {"label": "serial0"}, {"filename": "x"},
                                  {"filename": 1, "label": "serial0"},
                                  {"filename": "y", "label": 1},
                                  {"filename": "pty:/dev/pts/9", "label": "serial0"}])"),
              ElementsAre("pty:/dev/pts/9 qmpTypeReturn chardev"));
}

TEST_F(QmpChardevReply, PassesTheFilenameOnUnchanged) {
  EXPECT_THAT(resultsOfReturn(R"([{"filename": " pty:\"\u00e9\"/\n", "label": "serial0"}])"),
              ElementsAre(" pty:\"\xc3\xa9\"/\n qmpTypeReturn chardev"));
}

TEST_F(QmpChardevReply, HasNoResultWhenItIsNoArray) {
  for (const std::string value :
       {"{}", "null", "true", "7", R"("serial0")", R"({"filename": "a", "label": "serial0"})"})
    EXPECT_THAT(resultsOfReturn(value), IsEmpty()) << value;
  EXPECT_EQ(response->counter(), 0U);
}

}  // namespace
}  // namespace Vm
