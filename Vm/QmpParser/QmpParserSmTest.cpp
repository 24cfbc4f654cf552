// The machine and its records: construction, publication, readers that misbehave, generic access.
#include <stdexcept>

#include "Vm/QmpParser/QmpParserSm.h"
#include "Vm/QmpParser/fakes/ParserTest.h"
#include "runtime/entity/TypeRegistry.h"

namespace Vm {
namespace {

using fakes::cont;
using fakes::event;
using fakes::hello;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct QmpParserSmTest : fakes::ParserTest {};

TEST_F(QmpParserSmTest, IsInitializedAndHoldsItsRecordsFromConstruction) {
  EXPECT_TRUE(parser->initialized());
  EXPECT_EQ(parser->qmpParserRequest(), request);
  EXPECT_EQ(parser->qmpParserResponse(), response);
  EXPECT_EQ(parser->unparsedString(), "");
}

TEST_F(QmpParserSmTest, SaysWhenItIsInitializedAndNothingElse) {
  rt::fakes::TraceRecorder traces;
  const auto another = rt::make<QmpParserSm>(request, response);
  EXPECT_THAT(traces.take(), ElementsAre("8 void Vm::QmpParserSm::handleInitialized()"));
}

TEST_F(QmpParserSmTest, DoesNotReadARequestThatWasIssuedBeforeIt) {
  feed(R"({"QMP": {}})");
  EXPECT_THAT(reader->take(), ElementsAre(hello));
  parser = nullptr;
  parser = rt::make<QmpParserSm>(request, response);
  EXPECT_THAT(reader->take(), IsEmpty());
  EXPECT_THAT(resultsOf(R"({"event": "A"})"), ElementsAre(event));
}

TEST_F(QmpParserSmTest, WithoutARequestIsSilent) {
  const auto idle = rt::make<QmpParserSm>(nullptr, response);
  EXPECT_TRUE(idle->initialized());
  EXPECT_EQ(idle->qmpParserRequest(), nullptr);
  EXPECT_THAT(resultsOf(R"({"QMP": {}})"), ElementsAre(hello));
}

TEST_F(QmpParserSmTest, ThatHasGoneReadsNothing) {
  parser = nullptr;
  EXPECT_THAT(resultsOf(R"({"QMP": {}})"), IsEmpty());
  EXPECT_FALSE(request->hasReactors());
}

TEST_F(QmpParserSmTest, KeepsUnparsedTextForItselfAlone) {
  const auto otherRequest = rt::make<QmpParserRequest>();
  const auto otherResponse = rt::make<QmpParserResponse>();
  const auto other = rt::make<QmpParserSm>(otherRequest, otherResponse);
  feed(R"({"QMP")");
  otherRequest->inputStringIs(": {}}");
  otherRequest->counterInc(1);
  EXPECT_EQ(otherResponse->counter(), 0U);
  EXPECT_THAT(resultsOf(": {}}"), ElementsAre(hello));
}

TEST_F(QmpParserSmTest, SetsTextTypeAndIdAndThenRaisesTheCounter) {
  const auto changes = rt::make<rt::fakes::ChangeRecorder>();
  changes->watch(response);
  feed(R"({"error": {}, "id": "getfd"})");
  EXPECT_THAT(changes->take(), ElementsAre("Vm::QmpParserResponse.val = getfdError",
                                           "Vm::QmpParserResponse.qmpType = qmpTypeError",
                                           "Vm::QmpParserResponse.qmpIdType = getfd",
                                           "Vm::QmpParserResponse.counter = 1"));
}

TEST_F(QmpParserSmTest, TellsOfAnEqualResultByTheCounterOnly) {
  feed(R"({"event": "A"})");
  const auto changes = rt::make<rt::fakes::ChangeRecorder>();
  changes->watch(response);
  feed(R"({"event": "B"})");
  EXPECT_THAT(changes->take(), ElementsAre("Vm::QmpParserResponse.counter = 2"));
}

TEST_F(QmpParserSmTest, TellsOnlyOfTheAttributesThatAResultChanges) {
  feed(R"({"return": {"running": false}, "id": "status"})");
  const auto changes = rt::make<rt::fakes::ChangeRecorder>();
  changes->watch(response);
  feed(R"({"return": {"running": true}, "id": "status"})");
  EXPECT_THAT(changes->take(), ElementsAre("Vm::QmpParserResponse.val = Running",
                                           "Vm::QmpParserResponse.counter = 2"));
  feed(R"({"return": {}, "id": "cont"})");
  EXPECT_THAT(changes->take(), ElementsAre("Vm::QmpParserResponse.val = cont",
                                           "Vm::QmpParserResponse.qmpIdType = cont",
                                           "Vm::QmpParserResponse.counter = 3"));
}

TEST_F(QmpParserSmTest, TellsOfTheGreetingWithoutTypeAndIdForTheyAreTheDefaults) {
  const auto changes = rt::make<rt::fakes::ChangeRecorder>();
  changes->watch(response);
  feed(R"({"QMP": {}})");
  EXPECT_THAT(changes->take(), ElementsAre("Vm::QmpParserResponse.val = hello",
                                           "Vm::QmpParserResponse.counter = 1"));
}

TEST_F(QmpParserSmTest, CounterOfResultsGoesOnAtZeroAfterItsGreatestValue) {
  response->counterIs(0xffff'ffff);
  reader->take();
  EXPECT_THAT(resultsOf(R"({"QMP": {}})"), ElementsAre(hello));
  EXPECT_EQ(response->counter(), 0U);
}

TEST_F(QmpParserSmTest, LeavesTheRequestAlone) {
  const auto changes = rt::make<rt::fakes::ChangeRecorder>();
  feed(R"({"event": )");
  changes->watch(request);
  feed(R"("A"})");
  EXPECT_THAT(changes->take(), ElementsAre(R"(Vm::QmpParserRequest.inputString = "A"})",
                                           "Vm::QmpParserRequest.counter = 2"));
}

TEST_F(QmpParserSmTest, TellsOfTheUnparsedTextThatItKeepsAndGivesUp) {
  const auto changes = rt::make<rt::fakes::ChangeRecorder>();
  changes->watch(parser);
  feed(R"({"event": )");
  EXPECT_THAT(changes->take(), ElementsAre(R"(Vm::QmpParserSm.unparsedString = {"event": )"));
  feed(R"("A"})");
  EXPECT_THAT(changes->take(), ElementsAre("Vm::QmpParserSm.unparsedString = "));
  feed(R"({"event": "A"})");
  EXPECT_THAT(changes->take(), IsEmpty());
}

TEST_F(QmpParserSmTest, SaysNothingOfATailThatStaysTheSame) {
  const auto changes = rt::make<rt::fakes::ChangeRecorder>();
  changes->watch(parser);
  feed("{\"event\": \"A\"}\r\n");
  EXPECT_EQ(changes->take().size(), 1U);
  feed("{\"event\": \"A\"}\r\n");
  EXPECT_THAT(changes->take(), IsEmpty());
  EXPECT_EQ(unparsed(), "\r\n");
}

TEST_F(QmpParserSmTest, DoesNotRepeatAResultWhoseReaderThrew) {
  feed(R"({"event")");
  reader->onResult = [] { throw std::runtime_error("boom"); };
  EXPECT_THROW(feed(R"(: "A"})"), std::runtime_error);
  EXPECT_THAT(reader->take(), ElementsAre(event));
  EXPECT_EQ(unparsed(), "");
  reader->onResult = nullptr;
  EXPECT_THAT(resultsOf(R"({"QMP": {}})"), ElementsAre(hello));
}

TEST_F(QmpParserSmTest, DropsTheRestOfAChunkWhenAReaderThrows) {
  reader->onResult = [] { throw std::runtime_error("boom"); };
  EXPECT_THROW(feed(R"({"event": "A"} {"event": "B"} {"ev)"), std::runtime_error);
  EXPECT_THAT(reader->take(), ElementsAre(event));
  reader->onResult = nullptr;
  EXPECT_THAT(resultsOf(R"({"QMP": {}})"), ElementsAre(hello));
  EXPECT_EQ(response->counter(), 2U);
}

TEST_F(QmpParserSmTest, FinishesItsChunkWhenAReaderDropsIt) {
  reader->onResult = [&] { parser = nullptr; };
  EXPECT_THAT(resultsOf(R"({"event": "A"} {"QMP": {}} {"ev)"), ElementsAre(event, hello));
  EXPECT_EQ(request->references(), 1U);
  EXPECT_THAT(resultsOf(R"({"QMP": {}})"), IsEmpty());
}

TEST_F(QmpParserSmTest, GoesOnWithTheChunkItReadWhenAReaderSetsAnotherText) {
  reader->onResult = [&] { request->inputStringIs("another text"); };
  EXPECT_THAT(resultsOf(R"({"event": "A"} {"QMP": {}})"), ElementsAre(event, hello));
}

TEST_F(QmpParserSmTest, ReadsAChunkThatAReaderIssuesBeforeItGoesOn) {
  reader->onResult = [&] {
    reader->onResult = nullptr;
    feed(R"({"return": {}, "id": "cont"})");
  };
  EXPECT_THAT(resultsOf(R"({"event": "A"} {"QMP": {}})"), ElementsAre(event, cont, hello));
}

TEST(QmpParserRecords, StartAtTheirDefaults) {
  const auto request = rt::make<QmpParserRequest>();
  EXPECT_EQ(request->inputString(), "");
  EXPECT_EQ(request->counter(), 0U);
  const auto response = rt::make<QmpParserResponse>();
  EXPECT_EQ(response->val(), "");
  EXPECT_EQ(response->qmpType(), QmpTypes::qmpTypeQmp);
  EXPECT_EQ(response->qmpIdType(), QmpIdTypes::hello);
  EXPECT_EQ(response->counter(), 0U);
}

template <class Enum>
std::vector<std::string> names() {
  static_assert(sizeof(Enum) == 1);
  std::vector<std::string> names;
  for (size_t i = 0; i < enumNames(Enum()).size(); ++i)
    names.push_back(rt::toText(static_cast<Enum>(i)).str());
  return names;
}

TEST(QmpParserRecords, EnumerationsAreOneByteAndHaveTheirNamesInOrder) {
  EXPECT_THAT(names<QmpTypes>(),
              ElementsAre("qmpTypeQmp", "qmpTypeReturn", "qmpTypeError", "qmpTypeEvent",
                          "qmpTypeInvalid", "qmpTypeParseError"));
  EXPECT_THAT(names<QmpIdTypes>(), ElementsAre("hello", "enter", "status", "cont", "chardev",
                                               "netdev", "setlink", "getfd", "closefd", "invalid"));
}

TEST(QmpParserRecords, EnumerationValuesAreWhatTheirNamesStandFor) {
  EXPECT_EQ(static_cast<int>(QmpTypes::qmpTypeParseError), 5);
  EXPECT_EQ(static_cast<int>(QmpIdTypes::closefd), 8);
  EXPECT_EQ(rt::fromText<QmpIdTypes>("getfd"), QmpIdTypes::getfd);
  EXPECT_EQ(rt::fromText<QmpTypes>("getfd"), std::nullopt);
}

TEST(QmpParserRecords, TypesAreRegisteredAtLoad) {
  for (const auto* const type : {&rt::typeInfo<QmpParserRequest>, &rt::typeInfo<QmpParserResponse>,
                                 &rt::typeInfo<QmpParserSm>})
    EXPECT_EQ(rt::typeRegistry().type(type->name), type) << type->name;
  EXPECT_EQ(rt::typeInfo<QmpParserRequest>.name, "Vm::QmpParserRequest");
  EXPECT_EQ(rt::typeInfo<QmpParserResponse>.name, "Vm::QmpParserResponse");
  EXPECT_EQ(rt::typeInfo<QmpParserSm>.name, "Vm::QmpParserSm");
}

TEST_F(QmpParserSmTest, IsDrivenByAttributeNamesAlone) {
  rt::attributeTextIs(*request, "inputString", R"({"error": {}, "id": "netdev"}{)");
  rt::attributeTextIs(*request, "counter", "1");
  EXPECT_EQ(rt::attributeText(*response, "val"), "netdevError");
  EXPECT_EQ(rt::attributeText(*response, "qmpType"), "qmpTypeError");
  EXPECT_EQ(rt::attributeText(*response, "qmpIdType"), "netdev");
  EXPECT_EQ(rt::attributeText(*response, "counter"), "1");
  EXPECT_EQ(rt::attributeText(*parser, "unparsedString"), "{");
  EXPECT_EQ(rt::attributeText(*parser, "initialized"), "true");
}

TEST_F(QmpParserSmTest, ResponseIsWrittenByAttributeNames) {
  rt::attributeTextIs(*response, "val", "x");
  rt::attributeTextIs(*response, "qmpType", "qmpTypeInvalid");
  rt::attributeTextIs(*response, "qmpIdType", "invalid");
  rt::attributeTextIs(*response, "counter", "4294967295");
  EXPECT_THAT(reader->take(), ElementsAre("x qmpTypeInvalid invalid"));
  EXPECT_EQ(response->counter(), 0xffff'ffffU);
}

TEST_F(QmpParserSmTest, IsReadOnlyByAttributeNames) {
  EXPECT_THROW(rt::attributeTextIs(*parser, "unparsedString", "{"), rt::AttributeException);
  EXPECT_THROW(rt::attributeTextIs(*parser, "initialized", "false"), rt::AttributeException);
  EXPECT_EQ(unparsed(), "");
  EXPECT_TRUE(parser->initialized());
}

TEST_F(QmpParserSmTest, LeadsToItsRecordsByAttributeNames) {
  const auto& type = parser->type();
  EXPECT_EQ(type.find("qmpParserRequest")->entity(*parser), request);
  EXPECT_EQ(type.find("qmpParserResponse")->entity(*parser), response);
}

}  // namespace
}  // namespace Vm
