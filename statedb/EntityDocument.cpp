#include "statedb/EntityDocument.h"

#include <algorithm>
#include <string>

#include "runtime/base/Check.h"
#include "runtime/base/Format.h"
#include "runtime/base/VisibleText.h"
#include "statedb/DocumentReader.h"

namespace statedb {

namespace {

// Numbers as they are, but for the infinite ones, which JSON does not have.
void appendScalar(rt::String& out, const rt::Entity& entity, const rt::AttributeInfo& attribute) {
  const rt::String text = attribute.text(entity);
  const bool infinite = attribute.form == rt::ValueForm::number && text[text.size() - 1] > '9';
  if (attribute.form == rt::ValueForm::text || infinite)
    out += quoted(text);
  else
    out += text;
}

void appendFields(rt::String& out, const rt::Entity& entity);

void appendMembers(rt::String& out, const rt::Entity& entity, const rt::AttributeInfo& attribute) {
  char separator = '{';
  for (const rt::String& key : attribute.keys(entity)) {
    out += separator;
    separator = ',';
    out += quoted(key);
    out += ':';
    if (attribute.kind == rt::AttributeKind::entities)
      appendFields(out, *attribute.member(entity, key));
    else
      out += quoted(attribute.memberText(entity, key));
  }
  out += separator == '{' ? "{}" : "}";
}

void appendFields(rt::String& out, const rt::Entity& entity) {
  char separator = '{';
  for (const auto& attribute : entity.type().attributes) {
    if (!isField(attribute)) continue;
    out += separator;
    separator = ',';
    out += quoted(attribute.name);
    out += ':';
    if (attribute.kind == rt::AttributeKind::scalar)
      appendScalar(out, entity, attribute);
    else
      appendMembers(out, entity, attribute);
  }
  out += separator == '{' ? "{}" : "}";
}

// Makes one record equal another of its type, telling only of what differs.
class Copy {
 public:
  explicit Copy(std::string_view switchAttribute) : switchAttribute_(switchAttribute) {}

  void fields(const rt::Entity& from, rt::Entity& to) const {
    const rt::AttributeInfo* const last = switchOf(from.type());
    const bool on = last && last->text(from) == "true";
    if (last && !on) field(from, to, *last);
    for (const auto& attribute : from.type().attributes)
      if (isField(attribute) && &attribute != last) field(from, to, attribute);
    if (on) field(from, to, *last);
  }

 private:
  const rt::AttributeInfo* switchOf(const rt::TypeInfo& type) const {
    const rt::AttributeInfo* const found = type.find(switchAttribute_);
    const bool usable = found && found->textIs && found->form == rt::ValueForm::boolean;
    return usable ? found : nullptr;
  }

  void field(const rt::Entity& from, rt::Entity& to, const rt::AttributeInfo& attribute) const {
    if (attribute.kind != rt::AttributeKind::scalar)
      members(from, to, attribute);
    else
      attribute.textIs(to, attribute.text(from));
  }

  void members(const rt::Entity& from, rt::Entity& to, const rt::AttributeInfo& attribute) const {
    const std::vector<rt::String> keys = attribute.keys(from);
    std::vector<rt::String> sorted = keys;
    std::sort(sorted.begin(), sorted.end());
    for (const rt::String& key : attribute.keys(to))
      if (!std::binary_search(sorted.begin(), sorted.end(), key)) attribute.memberDel(to, key);
    for (const rt::String& key : keys) {
      if (attribute.kind == rt::AttributeKind::values) {
        attribute.memberTextIs(to, key, attribute.memberText(from, key));
        continue;
      }
      const rt::Ptr<rt::Entity> member = attribute.member(from, key);
      attribute.memberIs(to, key, [&](rt::Entity& filled) { fields(*member, filled); });
    }
  }

  std::string_view switchAttribute_;
};

// Adds what `more` says of fields that nothing is said of yet.
void add(std::vector<rt::Problem>& problems, const std::vector<rt::Problem>& more) {
  const auto known = problems.size();
  for (const rt::Problem& each : more) {
    const auto end = problems.begin() + static_cast<std::ptrdiff_t>(known);
    const auto same = [&](const rt::Problem& old) { return old.field == each.field; };
    if (std::none_of(problems.begin(), end, same)) problems.push_back(each);
  }
}

}  // namespace

rt::String quoted(std::string_view text) {
  // Nearly all text needs no escapes, and passes at once.
  const auto isPlain = [](char c) { return c >= 0x20 && c < 0x7f && c != '"' && c != '\\'; };
  if (std::all_of(text.begin(), text.end(), isPlain)) return "\"" + rt::String(text) + "\"";
  rt::String out = "\"";
  while (!text.empty()) {
    const size_t length = rt::characterLength(text);
    const char c = text[0];
    if (length == 0)
      out += "\xef\xbf\xbd";
    else if (c == '"' || c == '\\')
      (out += '\\') += c;
    else if (static_cast<unsigned char>(c) < 0x20)
      out += rt::format("\\u%04x", c);
    else
      out += text.substr(0, length);
    text.remove_prefix(std::max<size_t>(length, 1));
  }
  return out += '"';
}

rt::String documentOf(const rt::Entity& entity) {
  rt::String document;
  appendFields(document, entity);
  return document;
}

std::vector<rt::Problem> fill(rt::Entity& entity, std::string_view json,
                              const FillOptions& options) {
  rt::check(entity.type().fresh != nullptr, "a document is read into a record");
  const rt::Ptr<rt::Entity> alive(&entity);  // handlers may drop it
  const rt::Ptr<rt::Entity> scratch = entity.type().fresh(entity);
  if (options.defaults) options.defaults(*scratch);
  std::vector<rt::Problem> problems;
  if (readDocument(json, *scratch, problems) && options.check)
    add(problems, options.check(*scratch));
  if (problems.empty()) Copy(options.switchAttribute).fields(*scratch, entity);
  return problems;
}

void fillKnown(rt::Entity& entity, std::string_view json) {
  const rt::Ptr<rt::Entity> scratch = entity.type().fresh(entity);
  std::vector<rt::Problem> problems;
  (void)readDocument(json, *scratch, problems);
  copy(*scratch, entity);
}

void copy(const rt::Entity& from, rt::Entity& to, std::string_view switchAttribute) {
  rt::check(&from.type() == &to.type(), "a record is copied to one of its type");
  const rt::Ptr<rt::Entity> alive(&to);  // handlers may drop it
  Copy(switchAttribute).fields(from, to);
}

}  // namespace statedb
