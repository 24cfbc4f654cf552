// Any command line; a relay under an agent and a QEMU that say anything, while time passes; and
// anything said on a shim's own socket, by either side.
//
// The first byte says which: 255 is the socket. A command line is words with a NUL behind each. A
// relay's input is a sequence of actions, a byte each with operands behind it (see act()).
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "shim/decide/Arguments.h"
#include "shim/decide/ControlText.h"
#include "shim/fakes/RelayWorld.h"

namespace shim {

namespace {

constexpr size_t maxActions = 300;
constexpr size_t longestLine = 80 * 1024;

void require(bool holds, const char* claim) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", claim);
  std::abort();
}

class Input {
 public:
  Input(const uint8_t* data, size_t size) : at_(data), end_(data + size) {}

  bool empty() const { return at_ == end_; }
  uint8_t byte() { return empty() ? uint8_t{0} : *at_++; }
  // A length byte and as many bytes, or what there is of them.
  std::string text() {
    const size_t length = std::min<size_t>(byte(), static_cast<size_t>(end_ - at_));
    std::string text(reinterpret_cast<const char*>(at_), length);
    at_ += length;
    return text;
  }
  // All words that are left.
  std::vector<std::string> words() {
    std::vector<std::string> words;
    while (!empty()) {
      const uint8_t* const end = std::find(at_, end_, uint8_t{0});
      words.emplace_back(reinterpret_cast<const char*>(at_), static_cast<size_t>(end - at_));
      at_ = end == end_ ? end : end + 1;
    }
    return words;
  }

 private:
  const uint8_t* at_;
  const uint8_t* const end_;
};

void fuzzArguments(Input& input) {
  CommandLine line;
  try {
    line = readCommandLine(input.words());
  } catch (const ArgumentError& error) {
    require(*error.what() != '\0', "a refusal has its reason");
    return;
  }
  const auto result = rewrittenArguments(line, {}, {});
  const auto hubs = std::count_if(result.begin(), result.end(), [](const std::string& word) {
    return word.starts_with("hubport,hubid=") && word.find(",id=hub-") != std::string::npos;
  });
  require(static_cast<size_t>(hubs) >= line.cards.size(), "each card has its hub");
  require(line.name.find('/') == std::string::npos, "a name names one directory");
  require(std::find(result.begin(), result.end(), "-sandbox") != result.end() ||
              std::find(result.begin(), result.end(), "--sandbox") != result.end(),
          "QEMU is confined");
}

class FuzzedRelay {
 public:
  void act(Input& input) {
    switch (input.byte() % 13) {
      case 0:
        world_.connectAgent();
        connected_ = true;
        break;
      case 1:
        world_.disconnectAgent();
        connected_ = false;
        unanswered_ = 0;
        break;
      case 2:
        ask(input.text(), input.byte() % 3);
        break;
      case 3: {
        const std::string card = name("net", input);
        for (const auto& answer : world_.attach(card, name("hostnet", input))) hear(answer);
        unanswered_ += connected_ ? 4 : 0;
        break;
      }
      case 4:
        for (const auto& answer : world_.detach(name("hostnet", input))) hear(answer);
        unanswered_ += connected_ ? 3 : 0;
        break;
      case 5:
        ask(R"({"execute": "query-status", "id": "status"})", 0);
        break;
      case 6:
        ask(R"({"execute": "query-chardev", "id": "chardev"})", 0);
        break;
      case 7:
        world_.qemuSays(fakes::FakeQemu::greeting());
        break;
      case 8:
        qemuSays(input.text());
        break;
      case 9:
        world_.qemu.stop();
        break;
      case 10:
        world_.qemuGoes();
        break;
      case 12:
        adopt(input);
        break;
      default:
        world_.pass(Duration(input.byte() * 100));
    }
    collect();
  }

  void finish() {
    world_.qemu.stop();
    world_.pass(Patience().answer + Patience().greeting);
    collect();
    require(!connected_ || !world_.relay.isReady() || unanswered_ <= 0,
            "each request is answered in time");
  }

 private:
  static std::string name(const char* kind, Input& input) {
    return kind + std::to_string(input.byte() % 3);
  }

  void adopt(Input& input) {
    std::map<std::string, std::string> names;
    for (int i = input.byte() % 4; i > 0; --i) {
      const std::string theirs = name("net", input);
      names[theirs] = name("net", input);
    }
    world_.adopt(names);
    connected_ = false;
    unanswered_ = 0;
  }

  void ask(const std::string& line, int descriptors) {
    const auto request = qmp::requestFrom(line);
    if (request && !request->id.empty() && connected_) ++unanswered_;
    if (line.find("hubport") != std::string::npos) isTrue_ = false;
    rt::Descriptors given;
    for (int i = 0; i < descriptors; ++i) given.emplace_back(dup(STDERR_FILENO));
    for (const auto& answer : world_.ask(line, std::move(given))) hear(answer);
  }

  // What a sound QEMU would not say makes what is known of it untrue.
  void qemuSays(const std::string& text) {
    const auto saying = qmp::sayingFrom(text);
    if (saying && saying->id) isTrue_ = false;
    world_.qemuSays(text);
  }

  void collect() {
    for (const auto& line : world_.heard()) hear(line);
    require(!isTrue_ || !world_.qemu.hasAborted(), "QEMU is given no second hub port");
  }

  void hear(const std::string& line) {
    require(line.size() <= longestLine, "the agent hears nothing long");
    require(line.size() > 2 && line.ends_with("\r\n") && line.find('\n') == line.size() - 1,
            "the agent hears whole lines");
    const auto saying = qmp::sayingFrom(line);
    require(saying.has_value(), "the agent hears QMP");
    require(saying->kind != qmp::Saying::Kind::event, "the agent hears no events");
    if (saying->kind == qmp::Saying::Kind::greeting) return;
    require(line.find("\"id\": ") != std::string::npos, "the agent hears no answer without an id");
    --unanswered_;
  }

  fakes::RelayWorld world_;
  bool connected_ = false;
  bool isTrue_ = true;
  int unanswered_ = 0;
};

void fuzzRelay(Input& input) {
  const int before = dup(STDERR_FILENO);
  close(before);
  {
    FuzzedRelay relay;
    for (size_t i = 0; i < maxActions && !input.empty(); ++i) relay.act(input);
    relay.finish();
  }
  const int after = dup(STDERR_FILENO);
  close(after);
  require(before == after, "no descriptor is left open");
}

void fuzzControl(Input& input) {
  while (!input.empty()) {
    const std::string text = input.text();
    try {
      const control::Request request = control::requestFrom(text);
      require(!request.timeout || (*request.timeout >= Duration::zero() &&
                                   *request.timeout <= std::chrono::hours(24)),
              "a time to stop has its bounds");
      require(request.kind != control::Request::Kind::adopt || request.adoption.pid > 0,
              "a successor is a process");
    } catch (const control::RequestError& error) {
      require(*error.what() != '\0', "a refusal has its reason");
    }
    const auto saying = control::sayingFrom(text);
    if (saying && saying->kind == control::Saying::Kind::end)
      require(WIFEXITED(saying->waitStatus) || WIFSIGNALED(saying->waitStatus),
              "an end is one that a process can have");
  }
}

}  // namespace

}  // namespace shim

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  shim::Input input(data, size);
  const uint8_t kind = input.byte();
  if (kind == UINT8_MAX)
    shim::fuzzControl(input);
  else if (kind % 4 == 0)
    shim::fuzzArguments(input);
  else
    shim::fuzzRelay(input);
  return 0;
}
