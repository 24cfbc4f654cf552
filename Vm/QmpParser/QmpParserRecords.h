// What the monitor session hands to the parser, and what it gets back.
#pragma once

#include "Vm/QmpParser/QmpTypes.h"
#include "runtime/entity/EntityOf.h"

namespace Vm {

// Received text. Written by the monitor session, read by the parser.
class QmpParserRequest final : public rt::EntityOf<QmpParserRequest> {
 public:
  const rt::String& inputString() const { return inputString_; }
  void inputStringIs(const rt::String& text) {
    assign<&QmpParserRequest::inputString>(inputString_, text);
  }

  // Raised when `inputString` is in place; the parser runs on each change. 0: nothing yet.
  uint32_t counter() const { return counter_; }
  void counterIs(uint32_t counter) { assign<&QmpParserRequest::counter>(counter_, counter); }
  void counterInc(uint32_t by) { counterIs(counter_ + by); }

  static constexpr std::string_view typeName = "Vm::QmpParserRequest";
  using Attributes = rt::AttributeTable<
      rt::Attribute<"inputString", &QmpParserRequest::inputString,
                    &QmpParserRequest::inputStringIs>,
      rt::Attribute<"counter", &QmpParserRequest::counter, &QmpParserRequest::counterIs>>;

 private:
  rt::String inputString_;
  uint32_t counter_ = 0;
};

// One parsed message. Written by the parser, read by the monitor session.
class QmpParserResponse final : public rt::EntityOf<QmpParserResponse> {
 public:
  const rt::String& val() const { return val_; }
  void valIs(const rt::String& val) { assign<&QmpParserResponse::val>(val_, val); }

  QmpTypes qmpType() const { return qmpType_; }
  void qmpTypeIs(QmpTypes type) { assign<&QmpParserResponse::qmpType>(qmpType_, type); }

  QmpIdTypes qmpIdType() const { return qmpIdType_; }
  void qmpIdTypeIs(QmpIdTypes id) { assign<&QmpParserResponse::qmpIdType>(qmpIdType_, id); }

  // Raised when the three are in place, so that a message equal to the last is seen as well.
  uint32_t counter() const { return counter_; }
  void counterIs(uint32_t counter) { assign<&QmpParserResponse::counter>(counter_, counter); }
  void counterInc(uint32_t by) { counterIs(counter_ + by); }

  static constexpr std::string_view typeName = "Vm::QmpParserResponse";
  using Attributes = rt::AttributeTable<
      rt::Attribute<"val", &QmpParserResponse::val, &QmpParserResponse::valIs>,
      rt::Attribute<"qmpType", &QmpParserResponse::qmpType, &QmpParserResponse::qmpTypeIs>,
      rt::Attribute<"qmpIdType", &QmpParserResponse::qmpIdType, &QmpParserResponse::qmpIdTypeIs>,
      rt::Attribute<"counter", &QmpParserResponse::counter, &QmpParserResponse::counterIs>>;

 private:
  rt::String val_;
  QmpTypes qmpType_{};
  QmpIdTypes qmpIdType_{};
  uint32_t counter_ = 0;
};

}  // namespace Vm
