// Turns received QMP text into typed results.
#pragma once

#include "Vm/QmpParser/QmpParserRecords.h"
#include "runtime/entity/Reactor.h"

struct json_t;

namespace Vm {

// Reads JSON texts out of the chunks of one QMP stream and publishes a result for each.
//
//   unparsedString | rest of the text        | it publishes | unparsedString then
//   any            | a whole JSON text       | its result   | goes on behind it
//   any            | starts a JSON text      | nothing      | that start
//   any            | malformed               | nothing      | empty: the rest is dropped
//   any            | empty                   | nothing      | empty
//
// One parser serves one monitor session and goes with it. A reply without an id ends the process:
// every request of ours carries one.
class QmpParserSm final : public rt::StateMachineOf<QmpParserSm> {
 public:
  QmpParserSm(QmpParserRequest::PtrConst request, QmpParserResponse::Ptr response);

  const QmpParserRequest::PtrConst& qmpParserRequest() const { return request_.notifier(); }
  const QmpParserResponse::Ptr& qmpParserResponse() const { return qmpParserResponse_; }
  // The incomplete JSON text left from earlier chunks.
  const rt::String& unparsedString() const { return unparsedString_; }

  static constexpr std::string_view typeName = "Vm::QmpParserSm";
  using Attributes =
      rt::AttributeTable<rt::Attribute<"qmpParserRequest", &QmpParserSm::qmpParserRequest>,
                         rt::Attribute<"qmpParserResponse", &QmpParserSm::qmpParserResponse>,
                         rt::Attribute<"unparsedString", &QmpParserSm::unparsedString>,
                         rt::Attribute<"initialized", &QmpParserSm::initialized>>;

 private:
  void handleInitialized();
  void parseQmpRequest();
  // Parses `text` from `offset` on. False when nothing is left to parse.
  bool parseNext(const rt::String& text, size_t& offset, rt::String& tail);
  void parseJsonRoot(json_t* const& root);
  void parseQmpReturn(json_t* const& root);
  void parseQmpError(json_t* const& root);
  void parseQmpStatus(json_t* const& ret);
  void parseQmpPty(json_t* const& ret);
  void qmpSetResult(const rt::String& val, QmpTypes qmpType, QmpIdTypes qmpIdType);

  void unparsedStringIs(const rt::String& text) {
    assign<&QmpParserSm::unparsedString>(unparsedString_, text);
  }

  const QmpParserResponse::Ptr qmpParserResponse_;
  rt::String unparsedString_;

  rt::Reactor<QmpParserSm, const QmpParserRequest,
              rt::On<&QmpParserRequest::counter, &QmpParserSm::parseQmpRequest>>
      request_;
};

}  // namespace Vm
