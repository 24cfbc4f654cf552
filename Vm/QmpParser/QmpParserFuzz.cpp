// Any bytes in any chunks, beside a plain model of how messages are found.
//
// The input: a byte N, N (at most 32) bytes that are the first chunks' sizes, and the stream. What
// is left of it behind those is the last chunk. More chunks find nothing new and cost much, for
// each time all that is unparsed is parsed again.
#include <jansson.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>

#include "Vm/QmpParser/QmpParserSm.h"
#include "runtime/base/Check.h"
#include "runtime/base/Release.h"
#include "runtime/base/Trace.h"

namespace Vm {
namespace {

using JsonPtr = std::unique_ptr<json_t, rt::Release<json_decref>>;

// All messages are made and then forgotten.
class NullSink final : public rt::TraceSink {
 public:
  void write(const rt::TraceRecord&) override {}
};

// What a chunk ought to lead to.
struct Model {
  std::string unparsed;
  unsigned results = 0;
  bool fatal = false;  // a return without an id ends the process by design

  void read(std::string_view chunk) {
    const std::string text = std::exchange(unparsed, {}).append(chunk);
    for (size_t offset = 0; !fatal;) {
      json_error_t error;
      const JsonPtr root(json_loads(text.c_str() + offset, JSON_DISABLE_EOF_CHECK, &error));
      const auto position = static_cast<size_t>(error.position);
      if (!root) {
        if (offset + position == text.size()) unparsed = text.substr(offset);
        return;
      }
      count(root.get());
      offset = text.find_first_not_of(' ', offset + position);
      if (offset == std::string::npos) return;
    }
  }

 private:
  void count(const json_t* root) {
    const json_t* const returned = json_object_get(root, "return");
    if (returned && !json_object_get(root, "error"))
      countReturn(returned, json_object_get(root, "id"));
    else if (json_object_get(root, "error") || json_object_get(root, "QMP") ||
             json_object_get(root, "event"))
      ++results;
  }
  void countReturn(const json_t* returned, const json_t* id) {
    fatal = !id;
    const std::string_view text = json_is_string(id) ? json_string_value(id) : "";
    if (text == "status")
      results += json_is_boolean(json_object_get(returned, "running")) ? 1 : 0;
    else
      results += text != "chardev" || json_is_array(returned) ? 1 : 0;
  }
};

// Checks each result as it is published.
class ResultChecker final : public rt::StateMachineOf<ResultChecker> {
 public:
  explicit ResultChecker(QmpParserResponse::PtrConst response)
      : response_(*this, std::move(response)) {}

  unsigned results() const { return results_; }

  static constexpr std::string_view typeName = "Vm::ResultChecker";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &ResultChecker::initialized>>;

 private:
  void handleCounter() {
    rt::check(response_->counter() == ++results_, "the counter is raised by one for each result");
    rt::check(valid(), "the result is one of those there are");
  }
  bool valid() const {
    const rt::String& val = response_->val();
    const QmpIdTypes id = response_->qmpIdType();
    switch (response_->qmpType()) {
      case QmpTypes::qmpTypeQmp:
        return val == "hello" && id == QmpIdTypes::hello;
      case QmpTypes::qmpTypeEvent:
        return val == "event" && id == QmpIdTypes::invalid;
      case QmpTypes::qmpTypeError:
        if (id == QmpIdTypes::invalid) return val == "error" || val == "unknownError";
        return isCommand(id) && val == rt::toText(id) + "Error";
      case QmpTypes::qmpTypeReturn:
        if (id == QmpIdTypes::invalid) return val == "returnError";
        if (id == QmpIdTypes::status) return val == "Running" || val == "Stopped";
        return id == QmpIdTypes::chardev || (isCommand(id) && val == rt::toText(id));
      case QmpTypes::qmpTypeInvalid:
      case QmpTypes::qmpTypeParseError:
        return false;
    }
    return false;
  }
  static bool isCommand(QmpIdTypes id) {
    return id > QmpIdTypes::hello && id < QmpIdTypes::invalid;
  }

  unsigned results_ = 0;
  rt::Reactor<ResultChecker, const QmpParserResponse,
              rt::On<&QmpParserResponse::counter, &ResultChecker::handleCounter>>
      response_;
};

void parse(std::string_view sizes, std::string_view stream) {
  const auto request = rt::make<QmpParserRequest>();
  const auto response = rt::make<QmpParserResponse>();
  const auto checker = rt::make<ResultChecker>(response);
  const auto parser = rt::make<QmpParserSm>(request, response);
  Model model;
  for (size_t i = 0; i <= sizes.size(); ++i) {
    const size_t size = i < sizes.size() ? static_cast<unsigned char>(sizes[i]) : stream.size();
    const auto chunk = stream.substr(0, size);
    stream.remove_prefix(chunk.size());
    model.read(chunk);
    if (model.fatal) return;
    request->inputStringIs(chunk);
    request->counterInc(1);
    rt::check(checker->results() == model.results, "each message has its result and no other");
    rt::check(parser->unparsedString() == model.unparsed, "no more is kept than is incomplete");
  }
}

}  // namespace
}  // namespace Vm

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Vm::NullSink sink;
  rt::traceSinkIs(&sink);
  rt::vmTrace().levelsIs(~rt::TraceLevels(0));

  std::string_view input(reinterpret_cast<const char*>(data), size);
  if (input.empty()) return 0;
  const size_t count =
      std::min({size_t(static_cast<unsigned char>(input[0])), input.size() - 1, size_t(32)});
  Vm::parse(input.substr(1, count), input.substr(1 + count));
  return 0;
}
