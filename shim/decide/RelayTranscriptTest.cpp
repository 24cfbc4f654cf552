// The relay between an agent that asks what was asked once, and a QEMU that answers what it did.
#include <gmock/gmock.h>
#include <jansson.h>

#include <algorithm>
#include <deque>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>

#include "runtime/base/Release.h"
#include "shim/decide/Relay.h"

namespace shim {
namespace {

using JsonPtr = std::unique_ptr<json_t, rt::Release<json_decref>>;

struct Line {
  bool fromQemu = false;
  std::string raw;
  size_t descriptors = 0;
};

struct Conversation {
  std::string name;
  std::vector<Line> lines;

  friend std::ostream& operator<<(std::ostream& out, const Conversation& conversation) {
    return out << conversation.name;
  }
};

std::vector<Conversation> conversationsOf(const std::filesystem::path& file) {
  std::map<std::string, Conversation> byConnection;
  std::ifstream in(file);
  for (std::string text; std::getline(in, text);) {
    const JsonPtr entry(json_loads(text.c_str(), 0, nullptr));
    const char* direction = "";
    const char* connection = "";
    const char* raw = nullptr;
    int descriptors = 0;
    json_unpack(entry.get(), "{s:s, s:s, s?s, s?i}", "dir", &direction, "conn", &connection, "raw",
                &raw, "fds", &descriptors);
    if (!raw) continue;
    Conversation& conversation = byConnection[connection];
    conversation.name = file.stem().string() + "_" + connection;
    std::replace(conversation.name.begin(), conversation.name.end(), '-', '_');
    conversation.lines.push_back({direction[0] == '<', raw, static_cast<size_t>(descriptors)});
  }
  std::vector<Conversation> all;
  all.reserve(byConnection.size());
  for (auto& [connection, conversation] : byConnection) all.push_back(std::move(conversation));
  return all;
}

std::vector<Conversation> allConversations() {
  std::vector<Conversation> all;
  for (const auto& file : std::filesystem::directory_iterator(VMAGENT_TEST_DATA "/qmp"))
    if (file.path().extension() == ".jsonl")
      for (Conversation& conversation : conversationsOf(file.path()))
        all.push_back(std::move(conversation));
  std::sort(all.begin(), all.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
  return all;
}

std::string idOf(const std::string& raw) {
  const auto request = qmp::requestFrom(raw);
  return request ? request->id : "";
}

bool isAnswerTo(const std::string& id, const std::string& raw) {
  const JsonPtr message(json_loads(raw.c_str(), 0, nullptr));
  const JsonPtr wanted(json_loads(id.c_str(), JSON_DECODE_ANY, nullptr));
  return !json_object_get(message.get(), "event") &&
         json_equal(json_object_get(message.get(), "id"), wanted.get());
}

// As QEMU answers a request of that id; an empty one: without.
std::string withId(const std::string& raw, const std::string& id) {
  const JsonPtr message(json_loads(raw.c_str(), 0, nullptr));
  json_object_del(message.get(), "id");
  if (!id.empty())
    json_object_set_new(message.get(), "id", json_loads(id.c_str(), JSON_DECODE_ANY, nullptr));
  const std::unique_ptr<char, void (*)(void*)> text(json_dumps(message.get(), 0), std::free);
  return std::string(text.get()) + "\r\n";
}

// Plays a conversation's parts, and gives what the relay says to the agent.
class Player {
 public:
  explicit Player(const Conversation& conversation, size_t chunk)
      : chunk_(chunk), relay_(Time(0), {{"net0", "net1", "net2"}, {}, Patience()}) {
    perform(relay_.agentConnected());
    for (size_t i = 0; i < conversation.lines.size(); ++i) play(conversation.lines, i);
  }

  const std::string& heard() const { return heard_; }
  const std::string& expected() const { return expected_; }

 private:
  void play(const std::vector<Line>& lines, size_t i) {
    const Line& line = lines[i];
    if (line.fromQemu) {
      const auto saying = qmp::sayingFrom(line.raw);
      if (saying && saying->kind == qmp::Saying::Kind::greeting) expected_ += line.raw;
      // Answers are given when they are asked for.
      if (saying && (saying->kind == qmp::Saying::Kind::greeting ||
                     saying->kind == qmp::Saying::Kind::event || !answers(lines, i)))
        qemuSays(line.raw);
      return;
    }
    answer_ = answerAfter(lines, i);
    const auto request = qmp::requestFrom(line.raw);
    if (request && !request->id.empty() && !answer_.empty())
      expected_ += expectation(*request, answer_);
    rt::Descriptors descriptors;
    for (size_t n = 0; n < line.descriptors; ++n) descriptors.emplace_back(dup(STDERR_FILENO));
    for (Message& message : agent_.take(line.raw + "\n", std::move(descriptors)))
      perform(relay_.agentSays(Time(0), std::move(message)));
  }

  static std::string expectation(const qmp::Request& request, const std::string& answer) {
    if (request.execute == "qmp_capabilities" || Cards::alwaysSucceeds(request.execute))
      return qmp::returnLine(request.id);
    // Written anew, what is no ASCII is as it is.
    const auto saying = qmp::sayingFrom(answer);
    return saying->kind == qmp::Saying::Kind::refusal ? qmp::refusalLine(request.id, saying->value)
                                                      : qmp::returnLine(request.id, saying->value);
  }

  static std::string answerAfter(const std::vector<Line>& lines, size_t i) {
    const std::string id = idOf(lines[i].raw);
    for (size_t k = i + 1; k < lines.size(); ++k)
      if (lines[k].fromQemu && !id.empty() && isAnswerTo(id, lines[k].raw)) return lines[k].raw;
    return {};
  }

  // Whether the line answers a request that was made before.
  static bool answers(const std::vector<Line>& lines, size_t i) {
    return std::any_of(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(i),
                       [&](const Line& line) {
                         const std::string id = line.fromQemu ? "" : idOf(line.raw);
                         return !id.empty() && isAnswerTo(id, lines[i].raw);
                       });
  }

  void qemuSays(const std::string& raw) {
    for (size_t at = 0; at < raw.size(); at += chunk_)
      for (const Message& message : qemu_.take(raw.substr(at, chunk_), {}))
        perform(relay_.qemuSays(Time(0), message.text));
  }

  void perform(const Actions& actions) {
    heard_ += actions.toAgent;
    for (const Message& message : actions.toQemu) {
      const std::string id = idOf(message.text);
      if (id == "0")
        qemuSays("{\"return\": {}, \"id\": 0}\r\n");
      else if (!answer_.empty())
        qemuSays(withId(answer_, id));
    }
  }

  const size_t chunk_;
  Relay relay_;
  QmpStream agent_{64 * 1024};
  QmpStream qemu_{64 * 1024};
  std::string answer_;
  std::string heard_;
  std::string expected_;
};

class RelayTranscript : public testing::TestWithParam<Conversation> {};

TEST_P(RelayTranscript, GivesTheAgentTheGreetingAndTheAnswersAndNothingElse) {
  for (const size_t chunk : {1U, 7U, 4096U}) {
    const Player player(GetParam(), chunk);
    EXPECT_EQ(player.heard(), player.expected());
    EXPECT_NE(player.heard(), "");
  }
}

INSTANTIATE_TEST_SUITE_P(Recorded, RelayTranscript, testing::ValuesIn(allConversations()),
                         [](const auto& conversation) { return conversation.param.name; });

}  // namespace
}  // namespace shim
