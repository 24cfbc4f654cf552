#include <gmock/gmock.h>
#include <sys/wait.h>

#include "shim/decide/ControlText.h"

namespace shim::control {
namespace {

using std::chrono::seconds;
using testing::ElementsAre;
using testing::HasSubstr;
using Kind = Request::Kind;

std::string refusalOf(std::string_view text) {
  try {
    requestFrom(text);
  } catch (const RequestError& error) {
    return error.what();
  }
  return {};
}

TEST(ControlText, UnderstandsAStatusRequest) {
  EXPECT_EQ(requestFrom(R"({"status":{}})").kind, Kind::status);
}

TEST(ControlText, UnderstandsAStopWithItsTime) {
  const Request request = requestFrom(R"({"stop":{"timeout":15}})");
  EXPECT_EQ(request.kind, Kind::stop);
  EXPECT_EQ(request.timeout, seconds(15));
  EXPECT_EQ(requestFrom(R"({"stop":{"timeout":0.5}})").timeout, Duration(500));
  EXPECT_EQ(requestFrom(R"({"stop":{}})").timeout, std::nullopt);
}

TEST(ControlText, UnderstandsAnAdoption) {
  const Request request = requestFrom(R"({"adopt":{"pid":7,"daemon":6,"arguments":["-m","32"]}})");
  EXPECT_EQ(request.kind, Kind::adopt);
  EXPECT_EQ(request.adoption.pid, 7);
  EXPECT_EQ(request.adoption.daemon, 6);
  EXPECT_THAT(request.adoption.arguments, ElementsAre("-m", "32"));
}

TEST(ControlText, UnderstandsTheAdoptionItSends) {
  const Adoption sent{7, 6, {"-name", "a\"b\\", "-drive", "file=/\xc3\xa9"}};
  EXPECT_EQ(requestFrom(adoptLine(sent)).adoption.arguments, sent.arguments);
}

TEST(ControlText, UnderstandsTheStopItSends) {
  EXPECT_EQ(requestFrom(stopLine(seconds(3))).timeout, seconds(3));
}

TEST(ControlText, UnderstandsWhichRowTheGuestIsOf) {
  const Request request = requestFrom(R"({"row":{"store":"6f1c-a_.Z","sequence":42}})");
  EXPECT_EQ(request.kind, Kind::row);
  EXPECT_EQ(request.row.store, "6f1c-a_.Z");
  EXPECT_EQ(request.row.sequence, 42U);
}

TEST(ControlText, UnderstandsWhetherALineIsUp) {
  for (const bool isUp : {true, false}) {
    const Request request = requestFrom(guest::lineRequest("52:54:00:12:34:56", isUp));
    EXPECT_EQ(request.kind, Kind::line);
    EXPECT_EQ(request.line.card, "52:54:00:12:34:56");
    EXPECT_EQ(request.line.isUp, isUp);
  }
}

TEST(ControlText, RefusesALineOfNoCardOrOfNeitherState) {
  EXPECT_EQ(refusalOf(R"({"line":{"up":true}})"),
            "line: 'card' is missing: it must be the card's MAC address");
  for (const char* const up : {"1", "\"true\"", "null"})
    EXPECT_EQ(refusalOf("{\"line\":{\"card\":\"a\",\"up\":" + std::string(up) + "}}"),
              "line: 'up' is missing: it must be true or false");
}

TEST(ControlText, UnderstandsWhatAnOperatorWants) {
  const std::pair<const char*, Wish::Kind> all[] = {
      {R"({"pause":{"by":"op1"}})", Wish::Kind::pause},
      {R"({"resume":{"by":"op1"}})", Wish::Kind::resume},
      {R"({"reset":{"by":"op1"}})", Wish::Kind::reset},
      {R"({"nmi":{"by":"op1"}})", Wish::Kind::interrupt},
      {R"({"key":{"keys":["ctrl","f1"],"by":"op1"}})", Wish::Kind::keys},
      {R"({"screenshot":{"by":"op1"}})", Wish::Kind::picture}};
  for (const auto& [text, kind] : all) {
    const Request request = requestFrom(text);
    EXPECT_EQ(request.kind, Kind::wish) << text;
    EXPECT_EQ(request.wish.kind, kind) << text;
    EXPECT_EQ(request.by, "op1") << text;
  }
  EXPECT_THAT(requestFrom(all[4].first).wish.keys, ElementsAre("ctrl", "f1"));
  EXPECT_EQ(requestFrom(R"({"stop":{"timeout":0,"by":"op1"}})").by, "op1");
}

TEST(ControlText, RefusesKeysThatAreNone) {
  for (const char* const keys : {"[]", "\"a\"", "7", R"(["a","b","c","d","e","f","g","h","i"])"})
    EXPECT_THAT(refusalOf("{\"key\":{\"keys\":" + std::string(keys) + "}}"),
                HasSubstr("a list of 1 to 8 names"))
        << keys;
  for (const char* const key : {R"("")", R"("A")", R"("a\"b")", R"("a-b")", "7", "null"})
    EXPECT_THAT(refusalOf("{\"key\":{\"keys\":[" + std::string(key) + "]}}"),
                HasSubstr("a name is refused"))
        << key;
}

TEST(ControlText, RefusesARowThatIsNone) {
  for (const char* const store : {"\"\"", "7", "\"a b\"", "\"a=b\"", "\"a\\nb\"", "null"})
    EXPECT_THAT(refusalOf("{\"row\":{\"sequence\":1,\"store\":" + std::string(store) + "}}"),
                HasSubstr("'store' is refused: it must be 1 to 64 letters"))
        << store;
  EXPECT_THAT(refusalOf(R"({"row":{"sequence":1,"store":")" + std::string(65, 'a') + "\"}}"),
              HasSubstr("'store'"));
  for (const char* const sequence : {"0", "-1", "\"1\"", "1.5", "null"})
    EXPECT_EQ(refusalOf("{\"row\":{\"store\":\"a\",\"sequence\":" + std::string(sequence) + "}}"),
              "row: 'sequence' is refused: it must be 1 or more")
        << sequence;
}

TEST(ControlText, RefusesWhatIsNoRequestAndSaysWhatIs) {
  for (const char* const text : {"", "stop", "[]", "7", "{", "{\"stop\":{},\"stop\":{}}"})
    EXPECT_THAT(refusalOf(text), HasSubstr("no JSON object")) << text;
  for (const char* const text : {"{}", R"({"stop":1})", R"({"quit":{}})"})
    EXPECT_THAT(refusalOf(text), HasSubstr("it must be {\"status\":{}}")) << text;
}

TEST(ControlText, RefusesATimeThatIsNone) {
  for (const char* const time : {"-1", "86401", "\"15\"", "null", "1e99"})
    EXPECT_EQ(refusalOf("{\"stop\":{\"timeout\":" + std::string(time) + "}}"),
              "stop: the timeout is refused: it must be 0 to 86400 (seconds)")
        << time;
}

TEST(ControlText, RefusesAnAdoptionByNobody) {
  for (const char* const pid : {"0", "-1", "\"1\"", "4294967297"})
    EXPECT_EQ(
        refusalOf("{\"adopt\":{\"pid\":" + std::string(pid) + ",\"daemon\":6,\"arguments\":[]}}"),
        "adopt: 'pid' is missing: it must be a process id")
        << pid;
  EXPECT_THAT(refusalOf(R"({"adopt":{"pid":7,"arguments":[]}})"), HasSubstr("'daemon'"));
  EXPECT_THAT(refusalOf(R"({"adopt":{"pid":7,"daemon":6}})"), HasSubstr("'arguments'"));
}

TEST(ControlText, GreetsWithItsVersionFirst) {
  EXPECT_EQ(greetingLine({1, "guest0", 100, 101, State::starting}),
            "{\"shim\":1,\"vm\":\"guest0\",\"pid\":100,\"qemu\":101,\"state\":\"starting\"}\n");
}

TEST(ControlText, IsUnderstoodByASuccessor) {
  const auto greeting = sayingFrom(greetingLine({1, "guest0", 100, 101, State::stopping}));
  ASSERT_TRUE(greeting);
  EXPECT_EQ(greeting->kind, Saying::Kind::greeting);
  EXPECT_EQ(greeting->greeting.protocol, 1);
  EXPECT_EQ(greeting->greeting.vm, "guest0");
  EXPECT_EQ(greeting->greeting.pid, 100);
  EXPECT_EQ(greeting->greeting.qemu, 101);
  EXPECT_EQ(greeting->greeting.state, State::stopping);
  EXPECT_EQ(sayingFrom(doneLine())->kind, Saying::Kind::done);
  EXPECT_EQ(sayingFrom(errorLine("no"))->error, "no");
}

TEST(ControlText, TellsASuccessorOfTheEndAsItWas) {
  const int exited = sayingFrom(endLine(W_EXITCODE(37, 0)))->waitStatus;
  EXPECT_TRUE(WIFEXITED(exited));
  EXPECT_EQ(WEXITSTATUS(exited), 37);
  const int killed = sayingFrom(endLine(W_EXITCODE(0, 9)))->waitStatus;
  EXPECT_TRUE(WIFSIGNALED(killed));
  EXPECT_EQ(WTERMSIG(killed), 9);
}

TEST(ControlText, KnowsAShimOfALaterProtocol) {
  const auto saying = sayingFrom(R"({"shim":2,"state":"dreaming"})");
  ASSERT_TRUE(saying);
  EXPECT_EQ(saying->greeting.protocol, 2);
}

TEST(ControlText, IsNoSayingOfAShim) {
  for (const char* const text :
       {"", "{}", "[]", R"({"end":{}})", R"({"shim":1})", "{\"end\":3}", R"({"end":{"signal":0}})",
        R"({"end":{"signal":127}})", R"({"end":{"exit":256}})", R"({"end":{"exit":-1}})"})
    EXPECT_FALSE(sayingFrom(text)) << text;
}

}  // namespace
}  // namespace shim::control
