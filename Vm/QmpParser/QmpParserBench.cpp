// The parser beside bare jansson over the same bytes.
#include <benchmark/benchmark.h>
#include <jansson.h>

#include <string>

#include "Vm/QmpParser/QmpParserSm.h"

namespace Vm::parserBench {

// As QEMU 7.2 words them.
const std::string greeting =
    R"({"QMP": {"version": {"qemu": {"micro": 22, "minor": 2, "major": 7}, "package": )"
    R"("Debian 1:7.2+dfsg-7"}, "capabilities": ["oob"]}})";
const std::string status =
    R"({"return": {"status": "running", "singlestep": false, "running": true}, "id": "status"})";
const std::string cont = R"({"return": {}, "id": "cont"})";
const std::string chardev =
    R"({"return": [{"frontend-open": true, "filename": "unix:/var/run/guest0.monitor,server=on", )"
    R"("label": "monitor"}, {"frontend-open": true, "filename": "pty:/dev/pts/1", )"
    R"("label": "serial0"}], "id": "chardev"})";
const std::string error =
    R"({"id": "closefd", "error": {"class": "GenericError", "desc": "File descriptor named )"
    R"('fd-hostnet0' not found"}})";
const std::string event =
    R"({"timestamp": {"seconds": 1795223625, "microseconds": 372626}, "event": "RESET", "data": )"
    R"({"guest": true, "reason": "guest-reset"}})";

// What a busy session receives: mostly status polls.
struct Burst {
  std::string text;
  size_t messages = 0;

  explicit Burst(size_t size) {
    for (const std::string* const mix :
         {&status, &status, &status, &cont, &event, &status, &status, &chardev}) {
      parts_.append(*mix).append("\r\n");
      ++inParts_;
    }
    parts_.append(error).append("\r\n");
    ++inParts_;
    while (text.size() + parts_.size() <= size) {
      text += parts_;
      messages += inParts_;
    }
  }

 private:
  std::string parts_;
  size_t inParts_ = 0;
};

void report(benchmark::State& state, size_t bytes, size_t messages) {
  const auto count = static_cast<int64_t>(state.iterations());
  state.SetBytesProcessed(count * static_cast<int64_t>(bytes));
  state.SetItemsProcessed(count * static_cast<int64_t>(messages));
}

// Finds every message, as the parser must, and does nothing with it. Returns how many there are.
size_t parseBare(const std::string& text) {
  size_t messages = 0;
  for (size_t offset = 0; offset < text.size();) {
    json_error_t found;
    json_t* const root =
        json_loadb(text.data() + offset, text.size() - offset, JSON_DISABLE_EOF_CHECK, &found);
    if (!root) break;
    benchmark::DoNotOptimize(root);
    json_decref(root);
    offset += static_cast<size_t>(found.position);
    ++messages;
  }
  return messages;
}

void bare(benchmark::State& state, const std::string& text, size_t messages) {
  if (parseBare(text) != messages) return state.SkipWithError("messages are lost");
  for ([[maybe_unused]] auto _ : state) parseBare(text);
  report(state, text.size(), messages);
}

// Reads each result, as the monitor session does.
class Reader final : public rt::StateMachineOf<Reader> {
 public:
  explicit Reader(QmpParserResponse::PtrConst response) : response_(*this, std::move(response)) {}

  static constexpr std::string_view typeName = "Vm::parserBench::Reader";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &Reader::initialized>>;

 private:
  void handleCounter() {
    benchmark::DoNotOptimize(response_->val().charPtr());
    benchmark::DoNotOptimize(response_->qmpType());
    benchmark::DoNotOptimize(response_->qmpIdType());
  }

  rt::Reactor<Reader, const QmpParserResponse,
              rt::On<&QmpParserResponse::counter, &Reader::handleCounter>>
      response_;
};

// Hands `text` over in chunks of `chunk` bytes, from reading them to the results' reader.
void parser(benchmark::State& state, const std::string& text, size_t messages, size_t chunk) {
  const auto request = rt::make<QmpParserRequest>();
  const auto response = rt::make<QmpParserResponse>();
  const auto reader = rt::make<Reader>(response);
  const auto parser = rt::make<QmpParserSm>(request, response);
  const auto feed = [&] {
    for (size_t at = 0; at < text.size(); at += chunk) {
      request->inputStringIs(std::string_view(text).substr(at, chunk));
      request->counterInc(1);
    }
  };
  feed();
  if (response->counter() != messages) return state.SkipWithError("messages are lost");
  for ([[maybe_unused]] auto _ : state) feed();
  report(state, text.size(), messages);
}

[[maybe_unused]] const bool registered = [] {
  static const Burst burst(64 * 1024);
  const auto both = [](const std::string& name, const std::string& text, size_t messages) {
    benchmark::RegisterBenchmark(("parser/" + name).c_str(), parser, text, messages, text.size());
    benchmark::RegisterBenchmark(("parser/" + name + "/jansson").c_str(), bare, text, messages);
  };
  both("status", status + "\r\n", 1);
  both("cont", cont + "\r\n", 1);
  both("chardev", chardev + "\r\n", 1);
  both("greeting", greeting + "\r\n", 1);
  both("error", error + "\r\n", 1);
  both("event", event + "\r\n", 1);
  both("burst64K", burst.text, burst.messages);
  // As the monitor session reads them, messages cut in two.
  benchmark::RegisterBenchmark("parser/burst64K/4KiBReads", parser, burst.text, burst.messages,
                               size_t(4096));
  return true;
}();

}  // namespace Vm::parserBench
