// The parser reads what QEMU really sends.
#include <algorithm>
#include <numeric>

#include "Vm/QmpParser/fakes/ParserTest.h"
#include "Vm/QmpParser/fakes/Transcript.h"

namespace Vm {
namespace {

using fakes::Received;
using fakes::Results;
using fakes::Transcript;

const std::vector<Transcript>& allTranscripts() {
  static const auto all = fakes::transcripts(VMAGENT_TEST_DATA "/qmp");
  return all;
}

// What stands between `before` and `after` in `text`; empty when `before` is not there.
std::string between(const std::string& text, const std::string& before, const std::string& after) {
  const auto found = text.rfind(before);
  if (found == std::string::npos) return {};
  const auto start = found + before.size();
  return text.substr(start, text.find(after, start) - start);
}

// The result of a message, told by how QEMU words its messages. No JSON is parsed.
std::string expectedResult(const std::string& message) {
  if (message.starts_with(R"({"QMP": )")) return "hello qmpTypeQmp hello";
  if (message.starts_with(R"({"timestamp": )")) return "event qmpTypeEvent invalid";
  if (message.starts_with(R"({"error": )")) return "error qmpTypeError invalid";
  const std::string id = between(message, R"("id": ")", "\"");
  static const std::vector<std::string> commands{"enter",  "status",  "cont",  "chardev",
                                                 "netdev", "setlink", "getfd", "closefd"};
  const bool known = std::find(commands.begin(), commands.end(), id) != commands.end();
  if (message.starts_with(R"({"id": )"))
    return known ? id + "Error qmpTypeError " + id : "unknownError qmpTypeError invalid";
  if (!known) return "returnError qmpTypeReturn invalid";
  std::string val = id;
  if (id == "status")
    val = between(message, R"("running": )", "}") == "true" ? "Running" : "Stopped";
  if (id == "chardev")
    val = between(message.substr(0, message.find(R"(", "label": "serial0")")), R"("filename": ")",
                  "\"");
  return val + " qmpTypeReturn " + id;
}

Results expectedResults(const Received& received) {
  Results results;
  for (const auto& message : received) results.push_back(expectedResult(message));
  return results;
}

// The results of one session that is handed over in these chunks, and that "\r\n" is left of it.
Results resultsOf(const Received& chunks) {
  fakes::ParserSession session;
  for (const auto& chunk : chunks) session.feed(chunk);
  EXPECT_EQ(session.unparsed(), "\r\n");
  return session.reader->take();
}

std::string joined(const Received& received) {
  return std::accumulate(received.begin(), received.end(), std::string());
}

Received cut(const std::string& text, size_t size) {
  Received chunks;
  for (size_t at = 0; at < text.size(); at += size) chunks.push_back(text.substr(at, size));
  return chunks;
}

class QmpTranscript : public testing::TestWithParam<Transcript> {};

TEST_P(QmpTranscript, HasOneResultForEachMessageAsItCame) {
  for (const auto& [connection, received] : GetParam().connections)
    EXPECT_EQ(resultsOf(received), expectedResults(received)) << connection;
}

TEST_P(QmpTranscript, HasTheSameResultsByteByByte) {
  for (const auto& [connection, received] : GetParam().connections)
    EXPECT_EQ(resultsOf(cut(joined(received), 1)), expectedResults(received)) << connection;
}

TEST_P(QmpTranscript, HasTheSameResultsInOneChunk) {
  for (const auto& [connection, received] : GetParam().connections)
    EXPECT_EQ(resultsOf({joined(received)}), expectedResults(received)) << connection;
}

TEST_P(QmpTranscript, HasTheSameResultsInChunksOfAnySize) {
  for (const auto& [connection, received] : GetParam().connections)
    for (const size_t size : {2U, 3U, 7U, 64U, 131U, 1024U})
      EXPECT_EQ(resultsOf(cut(joined(received), size)), expectedResults(received))
          << connection << " by " << size;
}

INSTANTIATE_TEST_SUITE_P(Recorded, QmpTranscript, testing::ValuesIn(allTranscripts()),
                         [](const auto& transcript) {
                           std::string name = transcript.param.name;
                           std::replace(name.begin(), name.end(), '-', '_');
                           return name;
                         });

TEST(QmpTranscripts, BeginEveryConnectionWithTheGreeting) {
  for (const auto& transcript : allTranscripts())
    for (const auto& [connection, received] : transcript.connections)
      EXPECT_EQ(expectedResult(received.at(0)), "hello qmpTypeQmp hello")
          << transcript.name << " " << connection;
}

TEST(QmpTranscripts, HoldEveryKindOfMessageThatTheAgentMeets) {
  std::map<std::string, int> counts;
  for (const auto& transcript : allTranscripts())
    for (const auto& [connection, received] : transcript.connections)
      for (const auto& result : expectedResults(received)) ++counts[result];
  for (const char* const result :
       {"hello qmpTypeQmp hello", "event qmpTypeEvent invalid", "error qmpTypeError invalid",
        "unknownError qmpTypeError invalid", "returnError qmpTypeReturn invalid",
        "Running qmpTypeReturn status", "Stopped qmpTypeReturn status", "cont qmpTypeReturn cont",
        "pty:/dev/pts/0 qmpTypeReturn chardev", "netdev qmpTypeReturn netdev",
        "netdevError qmpTypeError netdev", "setlink qmpTypeReturn setlink",
        "setlinkError qmpTypeError setlink", "getfd qmpTypeReturn getfd",
        "getfdError qmpTypeError getfd", "closefd qmpTypeReturn closefd",
        "closefdError qmpTypeError closefd"})
    EXPECT_GT(counts[result], 0) << result;
}

}  // namespace
}  // namespace Vm
