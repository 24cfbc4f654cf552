#include "Vm/QmpParser/QmpParserSm.h"

#include <jansson.h>

#include <array>
#include <cstring>
#include <memory>

#include "runtime/base/Check.h"
#include "runtime/base/Release.h"
#include "runtime/base/Trace.h"

namespace Vm {

namespace {

using JsonPtr = std::unique_ptr<json_t, rt::Release<json_decref>>;

// The order in which a reply's id is compared with the known ones.
using IdOrder = std::array<QmpIdTypes, 8>;
constexpr IdOrder returnIds{QmpIdTypes::enter,   QmpIdTypes::status, QmpIdTypes::cont,
                            QmpIdTypes::chardev, QmpIdTypes::netdev, QmpIdTypes::setlink,
                            QmpIdTypes::getfd,   QmpIdTypes::closefd};
constexpr IdOrder errorIds{QmpIdTypes::enter,   QmpIdTypes::status, QmpIdTypes::cont,
                           QmpIdTypes::chardev, QmpIdTypes::getfd,  QmpIdTypes::closefd,
                           QmpIdTypes::netdev,  QmpIdTypes::setlink};

// The text of a JSON string, or null for another value.
std::string_view textOf(const json_t* value) {
  const char* const text = json_string_value(value);
  return text ? text : "";
}

// The one of `order` that `id` is the text of; `invalid` when there is none.
QmpIdTypes matchingId(std::string_view id, const IdOrder& order, const char* function) {
  for (const QmpIdTypes candidate : order) {
    if (enumNames(candidate)[static_cast<size_t>(candidate)] != id) continue;
    VM_TRACE(8) << function << " got id " << id << " matches enum " << candidate;
    return candidate;
  }
  VM_TRACE(1) << function << " FAIL: got id " << id << " that doesn't match any enums ";
  return QmpIdTypes::invalid;
}

}  // namespace

QmpParserSm::QmpParserSm(QmpParserRequest::PtrConst request, QmpParserResponse::Ptr response)
    : qmpParserResponse_(std::move(response)), request_(*this, std::move(request)) {
  handleInitialized();
}

void QmpParserSm::handleInitialized() {
  if (initialized()) return;
  VM_TRACE(8) << "void Vm::QmpParserSm::handleInitialized()";
  initializedIs(true);
}

void QmpParserSm::parseQmpRequest() {
  if (!request_ || request_->counter() == 0) return;
  const rt::String text = unparsedString_ + request_->inputString();
  VM_TRACE(8) << "parseQmpRequest"
              << " parsing: " << text;
  size_t offset = 0;
  rt::String tail;
  try {
    while (parseNext(text, offset, tail))
      VM_TRACE(8) << "parseQmpRequest"
                  << " parsing: " << text.charPtr() + offset;
  } catch (...) {
    // A reader of a result threw; what was parsed must not be parsed again.
    unparsedStringIs({});
    throw;
  }
  unparsedStringIs(tail);
}

bool QmpParserSm::parseNext(const rt::String& text, size_t& offset, rt::String& tail) {
  const char* const rest = text.charPtr() + offset;
  json_error_t err;
  const JsonPtr root(json_loads(rest, JSON_DISABLE_EOF_CHECK, &err));
  if (!root) {
    const size_t length = text.size() - offset;
    VM_TRACE(8) << "parseQmpRequest"
                << " json error "
                << " column: " << err.column << " line: " << err.line
                << " position: " << err.position << " source: " << err.source
                << " text: " << err.text;
    VM_TRACE(8) << "parseQmpRequest"
                << "json string size: " << length;
    // An error at the very end: more is to come. Any other leaves nothing to make sense of.
    if (static_cast<size_t>(err.position) != length) return false;
    VM_TRACE(8) << "parseQmpRequest"
                << " partial json string: " << rest;
    tail = {rest, length};
    return false;
  }
  parseJsonRoot(root.get());
  VM_TRACE(9) << "parseQmpRequest"
              << " off: " << offset;
  rt::check(err.position >= 0, "err.position >= 0");
  offset += static_cast<size_t>(err.position);
  rt::check(offset <= text.size(), "off <= str.size()");
  while (offset < text.size() && text[offset] == ' ') ++offset;
  return offset < text.size();
}

void QmpParserSm::parseJsonRoot(json_t* const& root) {
  if (json_object_get(root, "error"))
    parseQmpError(root);
  else if (json_object_get(root, "return"))
    parseQmpReturn(root);
  else if (json_object_get(root, "QMP"))
    qmpSetResult("hello", QmpTypes::qmpTypeQmp, QmpIdTypes::hello);
  else if (json_object_get(root, "event"))
    qmpSetResult("event", QmpTypes::qmpTypeEvent, QmpIdTypes::invalid);
}

void QmpParserSm::parseQmpReturn(json_t* const& root) {
  VM_TRACE(8) << "void Vm::QmpParserSm::parseQmpReturn(json_t* const&)";
  json_t* const returnObj = json_object_get(root, "return");
  json_t* const idObj = json_object_get(root, "id");
  rt::check(idObj != nullptr && returnObj != nullptr, "idObj != __null && returnObj != __null");
  const QmpIdTypes id = matchingId(textOf(idObj), returnIds, "parseQmpReturn");
  if (id == QmpIdTypes::status)
    parseQmpStatus(returnObj);
  else if (id == QmpIdTypes::chardev)
    parseQmpPty(returnObj);
  else if (id == QmpIdTypes::invalid)
    qmpSetResult("returnError", QmpTypes::qmpTypeReturn, id);
  else
    qmpSetResult(rt::toText(id), QmpTypes::qmpTypeReturn, id);
}

void QmpParserSm::parseQmpStatus(json_t* const& ret) {
  VM_TRACE(8) << "void Vm::QmpParserSm::parseQmpStatus(json_t* const&)";
  const json_t* const runningBoolean = json_object_get(ret, "running");
  if (json_is_true(runningBoolean))
    qmpSetResult("Running", QmpTypes::qmpTypeReturn, QmpIdTypes::status);
  else if (json_is_false(runningBoolean))
    qmpSetResult("Stopped", QmpTypes::qmpTypeReturn, QmpIdTypes::status);
  else
    VM_TRACE(1) << "parseQmpStatus"
                << " FAIL: runningBoolean is not boolean "
                << static_cast<const void*>(runningBoolean);
}

void QmpParserSm::parseQmpPty(json_t* const& ret) {
  VM_TRACE(8) << "void Vm::QmpParserSm::parseQmpPty(json_t* const&)";
  if (!json_is_array(ret)) {
    VM_TRACE(1) << "parseQmpPty"
                << " FAIL: returnArray is not array " << static_cast<const void*>(ret);
    return;
  }
  const size_t size = json_array_size(ret);
  VM_TRACE(8) << "parseQmpPty"
              << " returnArray size " << size;
  const json_t* chardevFilename = nullptr;
  for (size_t i = 0; i < size; ++i) {
    const json_t* const chardev = json_array_get(ret, i);
    chardevFilename = json_object_get(chardev, "filename");
    const json_t* const chardevLabel = json_object_get(chardev, "label");
    if (!chardevFilename || !chardevLabel) {
      VM_TRACE(1) << "parseQmpPty"
                  << " FAIL: chardevFilename or chardevLabel NULL";
    } else if (!json_is_string(chardevFilename)) {
      VM_TRACE(1) << "parseQmpPty"
                  << " FAIL: chardevFilename->type "
                  << static_cast<int>(json_typeof(chardevFilename)) << "  not a string";
    } else if (!json_is_string(chardevLabel)) {
      // The type reported is the file name's.
      VM_TRACE(1) << "parseQmpPty"
                  << " FAIL: chardevLabel->type " << static_cast<int>(json_typeof(chardevFilename));
    } else {
      const auto label = textOf(chardevLabel);
      VM_TRACE(8) << "parseQmpPty"
                  << " label:" << label << " filename:" << textOf(chardevFilename);
      if (!label.starts_with("serial0")) continue;
      VM_TRACE(8) << "parseQmpPty"
                  << " PTY:" << textOf(chardevFilename);
      break;
    }
  }
  // Without a match it is the last one's, whatever that is.
  qmpSetResult(textOf(chardevFilename), QmpTypes::qmpTypeReturn, QmpIdTypes::chardev);
}

void QmpParserSm::parseQmpError(json_t* const& root) {
  VM_TRACE(8) << "void Vm::QmpParserSm::parseQmpError(json_t* const&)";
  const json_t* const idObj = json_object_get(root, "id");
  if (!idObj) {
    VM_TRACE(1) << "parseQmpError"
                << " FAIL: error msg without id received ";
    qmpSetResult("error", QmpTypes::qmpTypeError, QmpIdTypes::invalid);
    return;
  }
  const QmpIdTypes id = matchingId(textOf(idObj), errorIds, "parseQmpError");
  if (id == QmpIdTypes::invalid)
    qmpSetResult("unknownError", QmpTypes::qmpTypeError, id);
  else
    qmpSetResult(rt::toText(id) + "Error", QmpTypes::qmpTypeError, id);
}

void QmpParserSm::qmpSetResult(const rt::String& val, QmpTypes qmpType, QmpIdTypes qmpIdType) {
  qmpParserResponse_->valIs(val);
  qmpParserResponse_->qmpTypeIs(qmpType);
  qmpParserResponse_->qmpIdTypeIs(qmpIdType);
  qmpParserResponse_->counterInc(1);
}

}  // namespace Vm
