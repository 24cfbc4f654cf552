// What tests of the parser start from.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Vm/QmpParser/QmpParserSm.h"
#include "runtime/fakes/ChangeRecorder.h"
#include "runtime/fakes/TraceRecorder.h"

namespace Vm::fakes {

// Each result as "VAL TYPE ID", in order.
using Results = std::vector<std::string>;

inline constexpr const char* cont = "cont qmpTypeReturn cont";
inline constexpr const char* hello = "hello qmpTypeQmp hello";
inline constexpr const char* event = "event qmpTypeEvent invalid";

// Remembers what it reads whenever the response's counter is raised, then calls `onResult`.
class ResultReader final : public rt::StateMachineOf<ResultReader> {
 public:
  explicit ResultReader(QmpParserResponse::PtrConst response)
      : response_(*this, std::move(response)) {}

  std::function<void()> onResult;

  // What was read since the last call.
  Results take() { return std::exchange(results_, {}); }

  static constexpr std::string_view typeName = "Vm::fakes::ResultReader";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &ResultReader::initialized>>;

 private:
  void handleCounter() {
    results_.push_back(response_->val().str() + " " + rt::toText(response_->qmpType()).str() + " " +
                       rt::toText(response_->qmpIdType()).str());
    if (onResult) onResult();
  }

  Results results_;
  rt::Reactor<ResultReader, const QmpParserResponse,
              rt::On<&QmpParserResponse::counter, &ResultReader::handleCounter>>
      response_;
};

// For its lifetime, nothing is traced: the tests' bad messages would fill standard error.
class NoTraces {
 public:
  NoTraces() { rt::vmTrace().levelsIs(0); }
  NoTraces(const NoTraces&) = delete;
  ~NoTraces() { rt::vmTrace().levelsIs(oldLevels_); }

 private:
  const rt::TraceLevels oldLevels_ = rt::vmTrace().levels();
};

// A parser, its request and response, and a reader of the results.
struct ParserSession {
  // Hands `text` over as the monitor session does.
  void feed(std::string_view text) {
    request->inputStringIs(text);
    request->counterInc(1);
  }
  // The results that `text` has.
  Results resultsOf(std::string_view text) {
    feed(text);
    return reader->take();
  }
  const rt::String& unparsed() const { return parser->unparsedString(); }

  const NoTraces noTraces;
  const QmpParserRequest::Ptr request = rt::make<QmpParserRequest>();
  const QmpParserResponse::Ptr response = rt::make<QmpParserResponse>();
  const rt::Ptr<ResultReader> reader = rt::make<ResultReader>(response);
  rt::Ptr<QmpParserSm> parser = rt::make<QmpParserSm>(request, response);
};

class ParserTest : public testing::Test, protected ParserSession {};

}  // namespace Vm::fakes
