// How messages are found in the chunks of a stream.
#include "Vm/QmpParser/fakes/ParserTest.h"

namespace Vm {
namespace {

using fakes::cont;
using fakes::event;
using fakes::hello;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct QmpParserChunk : fakes::ParserTest {};

TEST_F(QmpParserChunk, WithTwoMessagesHasTwoResultsInOrder) {
  EXPECT_THAT(resultsOf(R"({"QMP": {}}{"return": {}, "id": "cont"})"), ElementsAre(hello, cont));
  EXPECT_EQ(response->counter(), 2U);
  EXPECT_EQ(unparsed(), "");
}

TEST_F(QmpParserChunk, WithEqualMessagesHasAResultForEach) {
  EXPECT_THAT(resultsOf(R"({"event": "A"}{"event": "A"}{"event": "B"})"),
              ElementsAre(event, event, event));
  EXPECT_EQ(response->counter(), 3U);
}

TEST_F(QmpParserChunk, SpacesBetweenMessagesAreSkipped) {
  EXPECT_THAT(resultsOf(R"(   {"QMP": {}}   {"event": "A"})"), ElementsAre(hello, event));
  EXPECT_EQ(unparsed(), "");
}

TEST_F(QmpParserChunk, SpacesAfterTheLastMessageAreDropped) {
  EXPECT_THAT(resultsOf(R"({"QMP": {}}    )"), ElementsAre(hello));
  EXPECT_EQ(unparsed(), "");
}

TEST_F(QmpParserChunk, OtherWhiteSpaceAfterTheLastMessageIsKeptUntilTheNext) {
  for (const std::string tail : {"\r\n", "\n", "\t", "\r", "\n  "}) {
    EXPECT_THAT(resultsOf(R"({"QMP": {}})" + tail), ElementsAre(hello));
    EXPECT_EQ(unparsed(), tail);
    EXPECT_THAT(resultsOf(R"({"event": "A"})"), ElementsAre(event));
    EXPECT_EQ(unparsed(), "");
  }
}

TEST_F(QmpParserChunk, MessagesThatEndInCrLfAreParsedAndTheLastCrLfIsKept) {
  EXPECT_THAT(resultsOf("{\"QMP\": {}}\r\n{\"event\": \"A\"}\r\n"), ElementsAre(hello, event));
  EXPECT_EQ(unparsed(), "\r\n");
  EXPECT_THAT(resultsOf("{\"return\": {}, \"id\": \"cont\"}\r\n"), ElementsAre(cont));
  EXPECT_EQ(unparsed(), "\r\n");
}

TEST_F(QmpParserChunk, OfSpacesOnlyHasNoResultAndIsKept) {
  EXPECT_THAT(resultsOf("   "), IsEmpty());
  EXPECT_EQ(unparsed(), "   ");
  EXPECT_THAT(resultsOf(R"({"QMP": {}})"), ElementsAre(hello));
  EXPECT_EQ(unparsed(), "");
}

TEST_F(QmpParserChunk, ThatIsEmptyHasNoResultAndLeavesNothing) {
  EXPECT_THAT(resultsOf(""), IsEmpty());
  EXPECT_EQ(unparsed(), "");
}

TEST_F(QmpParserChunk, ThatIsEmptyLeavesWhatIsUnparsed) {
  feed(R"({"QMP")");
  EXPECT_THAT(resultsOf(""), IsEmpty());
  EXPECT_EQ(unparsed(), R"({"QMP")");
}

TEST_F(QmpParserChunk, WithTheStartOfAMessageIsKeptUntilTheRestComes) {
  EXPECT_THAT(resultsOf(R"({"return": {}, )"), IsEmpty());
  EXPECT_EQ(unparsed(), R"({"return": {}, )");
  EXPECT_THAT(resultsOf(R"("id": "cont"})"), ElementsAre(cont));
  EXPECT_EQ(unparsed(), "");
}

TEST_F(QmpParserChunk, WithAMessageAndTheStartOfAnotherHasTheFirstsResultAtOnce) {
  EXPECT_THAT(resultsOf(R"({"QMP": {}} {"event")"), ElementsAre(hello));
  EXPECT_EQ(unparsed(), R"({"event")");
  EXPECT_THAT(resultsOf(R"(: "A"})"), ElementsAre(event));
}

// Every kind of token, so that cuts fall into each.
constexpr std::string_view manifold =
    R"({"return": [{"filename": "pty:\"\u00e9\ud83d\ude00/x", "label": "serial0", "n": -12.5e+3,)"
    R"( "t": true, "f": false, "z": null, "d": {"a": [1, [2], {}]}}], "id": "chardev"})"
    "\r\n";
constexpr const char* manifoldResult = "pty:\"\xc3\xa9\xf0\x9f\x98\x80/x qmpTypeReturn chardev";

TEST_F(QmpParserChunk, OfAMessageInTwoHasItsResultWithTheSecondWhereverItIsCut) {
  const std::string_view message = manifold.substr(0, manifold.size() - 2);
  for (size_t cut = 0; cut < message.size(); ++cut) {
    EXPECT_THAT(resultsOf(message.substr(0, cut)), IsEmpty()) << cut;
    EXPECT_EQ(unparsed(), message.substr(0, cut));
    EXPECT_THAT(resultsOf(message.substr(cut)), ElementsAre(manifoldResult)) << cut;
    EXPECT_EQ(unparsed(), "") << cut;
  }
}

TEST_F(QmpParserChunk, OfAMessageInThreeHasItsResultOnceWhereverItIsCut) {
  for (size_t one = 0; one <= manifold.size(); one += 3)
    for (size_t two = one; two <= manifold.size(); ++two) {
      feed(manifold.substr(0, one));
      feed(manifold.substr(one, two - one));
      EXPECT_THAT(resultsOf(manifold.substr(two)), ElementsAre(manifoldResult))
          << one << " " << two;
    }
}

TEST_F(QmpParserChunk, OfOneByteEachLeadToTheSameResults) {
  for (const char byte : manifold) feed({&byte, 1});
  for (const char byte : manifold) feed({&byte, 1});
  EXPECT_THAT(reader->take(), ElementsAre(manifoldResult, manifoldResult));
  EXPECT_EQ(unparsed(), "\r\n");
}

TEST_F(QmpParserChunk, OfFourKibibytesEachMakeUpALongMessage) {
  const std::string pad(10'000, 'x');
  const std::string text =
      R"({"return": {"pad": ")" + pad + R"(", "running": true}, "id": "status"})";
  EXPECT_THAT(resultsOf(text.substr(0, 4096)), IsEmpty());
  EXPECT_THAT(resultsOf(text.substr(4096, 4096)), IsEmpty());
  EXPECT_EQ(unparsed().size(), 8192U);
  EXPECT_THAT(resultsOf(text.substr(8192)), ElementsAre("Running qmpTypeReturn status"));
  EXPECT_EQ(unparsed(), "");
}

TEST_F(QmpParserChunk, WithThousandsOfMessagesHasAResultForEach) {
  std::string text;
  for (int i = 0; i < 3000; ++i) text += "{\"event\": \"RESET\"}\r\n";
  EXPECT_EQ(resultsOf(text), fakes::Results(3000, event));
  EXPECT_EQ(unparsed(), "\r\n");
}

TEST_F(QmpParserChunk, WithGarbageIsDroppedFromThereAndEarlierResultsStand) {
  EXPECT_THAT(resultsOf(R"({"QMP": {}} garbage {"event": "A"})"), ElementsAre(hello));
  EXPECT_EQ(unparsed(), "");
  EXPECT_EQ(response->counter(), 1U);
}

TEST_F(QmpParserChunk, AfterADroppedOneIsParsed) {
  feed("garbage, ");
  EXPECT_EQ(unparsed(), "");
  EXPECT_THAT(resultsOf(R"({"QMP": {}})"), ElementsAre(hello));
}

TEST_F(QmpParserChunk, ThatTurnsAStartIntoGarbageDropsBoth) {
  feed(R"({"return": {)");
  EXPECT_THAT(resultsOf(R"(]}} {"QMP": {}})"), IsEmpty());
  EXPECT_EQ(unparsed(), "");
}

TEST_F(QmpParserChunk, WithGarbageUpToItsVeryEndIsKeptAsAStart) {
  for (const std::string garbage :
       {"garbage", "}", "]", R"("text")", "7", "true", R"({"a": 1,})", R"({"a" 1)", "{]"}) {
    EXPECT_THAT(resultsOf(garbage), IsEmpty()) << garbage;
    EXPECT_EQ(unparsed(), garbage);
    EXPECT_THAT(resultsOf(R"( {"QMP": {}})"), IsEmpty()) << garbage;  // and goes with it
    EXPECT_EQ(unparsed(), "") << garbage;
  }
}

TEST_F(QmpParserChunk, WithAScalarAtTheTopIsDropped) {
  for (const std::string scalar : {"7 ", "true ", "null ", R"("text" )"}) {
    EXPECT_THAT(resultsOf(scalar + R"({"QMP": {}})"), IsEmpty()) << scalar;
    EXPECT_EQ(unparsed(), "") << scalar;
  }
}

TEST_F(QmpParserChunk, CutInsideAUtf8CharacterIsDropped) {
  EXPECT_THAT(resultsOf("{\"QMP\": \"\xe2\x82"), IsEmpty());
  EXPECT_EQ(unparsed(), "");
}

TEST_F(QmpParserChunk, CutBetweenUtf8CharactersIsKept) {
  feed("{\"QMP\": \"\xe2\x82\xac");
  EXPECT_EQ(unparsed(), "{\"QMP\": \"\xe2\x82\xac");
  EXPECT_THAT(resultsOf("\"}"), ElementsAre(hello));
}

TEST_F(QmpParserChunk, WithInvalidUtf8IsDroppedFromThatMessageOn) {
  for (const std::string bytes : {"\xff", "\xc3(", "\xed\xa0\x80", "\xf5\x80\x80\x80", "\x80"}) {
    EXPECT_THAT(resultsOf(R"({"event": "A"} {"QMP": ")" + bytes + R"("} {"event": "B"})"),
                ElementsAre(event));
    EXPECT_EQ(unparsed(), "");
  }
}

TEST_F(QmpParserChunk, WithAControlCharacterInATextIsDroppedFromThatMessageOn) {
  EXPECT_THAT(resultsOf("{\"event\": \"A\"} {\"QMP\": \"\n\"} {\"event\": \"B\"}"),
              ElementsAre(event));
  EXPECT_EQ(unparsed(), "");
}

TEST_F(QmpParserChunk, IsDroppedFromANulByteOn) {
  using namespace std::string_view_literals;
  EXPECT_THAT(resultsOf("{\"event\": \"A\"}\0{\"QMP\": {}}"sv), ElementsAre(event));
  EXPECT_EQ(unparsed(), "");
  EXPECT_THAT(resultsOf("{\"QMP\": \"\0\"}"sv), IsEmpty());
  EXPECT_EQ(unparsed(), "");
  EXPECT_THAT(resultsOf("\0"sv), IsEmpty());
  EXPECT_EQ(unparsed(), "");
  EXPECT_THAT(resultsOf("{\"QMP\": {}}"), ElementsAre(hello));
}

TEST_F(QmpParserChunk, WithAnEscapedNulIsDropped) {
  EXPECT_THAT(resultsOf(R"({"QMP": "\u0000"} {"event": "A"})"), IsEmpty());
  EXPECT_EQ(unparsed(), "");
}

std::string nested(size_t depth) {
  return R"({"event": )" + std::string(depth, '[') + std::string(depth, ']') + "}";
}

TEST_F(QmpParserChunk, MayNestValues2048Deep) {
  EXPECT_THAT(resultsOf(nested(2047)), ElementsAre(event));
}

TEST_F(QmpParserChunk, WithValuesNestedDeeperIsDropped) {
  EXPECT_THAT(resultsOf(nested(2048) + R"({"QMP": {}})"), IsEmpty());
  EXPECT_EQ(unparsed(), "");
  EXPECT_THAT(resultsOf(nested(100'000)), IsEmpty());
  EXPECT_EQ(unparsed(), "");
  EXPECT_THAT(resultsOf(R"({"QMP": {}})"), ElementsAre(hello));
}

TEST_F(QmpParserChunk, IsReadOnlyWhenTheCounterChanges) {
  request->inputStringIs(R"({"QMP": {}})");
  EXPECT_THAT(reader->take(), IsEmpty());
  request->counterInc(1);
  EXPECT_THAT(reader->take(), ElementsAre(hello));
  request->counterIs(request->counter());
  EXPECT_THAT(reader->take(), IsEmpty());
}

TEST_F(QmpParserChunk, IsReadOnEveryChangeOfTheCounter) {
  request->inputStringIs(R"({"QMP": {}})");
  for (const uint32_t counter : {7U, 3U, 0xffff'ffffU}) {
    request->counterIs(counter);
    EXPECT_THAT(reader->take(), ElementsAre(hello)) << counter;
  }
}

TEST_F(QmpParserChunk, IsIgnoredWhileTheCounterIsZero) {
  feed(R"({"QMP")");
  request->inputStringIs(R"(: {}})");
  request->counterIs(0);
  EXPECT_THAT(reader->take(), IsEmpty());
  EXPECT_EQ(unparsed(), R"({"QMP")");
  request->counterIs(1);
  EXPECT_THAT(reader->take(), ElementsAre(hello));
}

}  // namespace
}  // namespace Vm
