#include "ctl/verbs/ApplyDocument.h"

#include <algorithm>
#include <array>
#include <set>
#include <span>

#include "ctl/line/Json.h"
#include "ctl/view/VmRows.h"
#include "model/VmImage.h"
#include "runtime/base/NearName.h"
#include "runtime/base/Text.h"
#include "statedb/EntityDocument.h"

namespace ctl {

namespace {

using Names = std::span<const std::string_view>;
using Problems = std::vector<rt::Problem>;

constexpr int64_t knownVersion = 1;
constexpr std::array<std::string_view, 3> documentFields{"version", "vms", "stale"};
// Those that are taken, and then those that are passed over.
constexpr size_t takenFields = 5;
constexpr std::array<std::string_view, 27> vmFields{
    "name",         "config",  "format",    "limits",      "policy",  "status",  "process",
    "problem",      "removed", "unknown",   "stale",       "version", "wanted",  "actual",
    "severity",     "since",   "reasons",   "next",        "end",     "attempt", "nextAt",
    "stopDeadline", "pid",     "startedAt", "qemuVersion", "resets",  "cards"};

// The value as JSON, without the fields that the problems are of.
rt::String textWithout(const JsonValue& value, const rt::String& path, const Problems& problems) {
  if (!value.isObject()) return value.dump();
  rt::String json = "{";
  for (const rt::String& name : value.names()) {
    const rt::String field = path.empty() ? name : path + "." + name;
    const bool isLeftOut =
        std::any_of(problems.begin(), problems.end(),
                    [&](const rt::Problem& problem) { return problem.field == field; });
    if (isLeftOut) continue;
    if (json.size() > 1) json += ',';
    (json += quoted(name)) += ':';
    json += textWithout(*value.member(name.charPtr()), field, problems);
  }
  return json += '}';
}

class Reader {
 public:
  explicit Reader(ApplyDocument& document) : document_(document) {}

  void read(const JsonValue& root) {
    if (!root.isObject()) return refuse("document", "must be a JSON object");
    if (root.member("name")) return readVm(root, "document");
    requireKnown(root, documentFields, "document");
    const auto version = root.member("version");
    if (root.number("version") != knownVersion)
      refuse("version", (version ? "'" + version->dump() + "' is refused: " : rt::String()) +
                            "must be 1: this vmctl knows no other");
    const auto vms = root.member("vms");
    if (!vms || !vms->isArray()) return refuse("vms", "must be a list of VMs");
    size_t index = 0;
    for (const JsonValue& vm : vms->elements()) readVm(vm, "vms[" + rt::toText(index++) + "]");
  }

 private:
  void refuse(const rt::String& where, const rt::String& right) {
    document_.problems.push_back(where + ": " + right);
  }

  void requireKnown(const JsonValue& object, Names known, const rt::String& where) {
    for (const rt::String& name : object.names())
      if (std::find(known.begin(), known.end(), std::string_view(name)) == known.end())
        refuse(where, "there is no field '" + name + "'" + rt::didYouMean(name, known));
  }

  void readVm(const JsonValue& json, const rt::String& where) {
    if (!json.isObject()) return refuse(where, "must be an object with name and config");
    const auto name = json.text("name");
    if (!name) return refuse(where, "must have a name, in quotes");
    requireKnown(json, vmFields, *name);
    if (!names_.insert(*name).second) return refuse(*name, "must be there once");
    if (json.boolean("removed").value_or(false)) return;  // it was on its way out
    if (json.boolean("unknown").value_or(false)) return;  // there is nothing to apply
    const auto config = json.member("config");
    if (!config) return refuse(*name, "must have a config");
    const auto vm = rt::make<Vm::VmConfig>(*name);
    Problems unread = fillVm(*vm, config->dump());
    for (const rt::Problem& problem : unread)
      document_.problems.push_back(*name + ": " +
                                   (isBeside(problem.field)
                                        ? "'" + problem.field + "' stands beside config, not in it"
                                        : problem.text()));
    // A document is taken as a whole or not at all; the rest of it may have mistakes, too.
    if (unread.empty() || fillVm(*vm, textWithout(*config, "", unread)).empty())
      document_.vms.push_back(vm);
    if (!unread.empty()) document_.unread[*name] = std::move(unread);
    readFormat(json, *name);
    for (const auto& each : model::ownTables) readOwn(json, *name, each);
  }

  static bool isBeside(std::string_view field) {
    return field == "format" || std::any_of(model::ownTables.begin(), model::ownTables.end(),
                                            [&](const auto& each) { return each.member == field; });
  }

  // Of an image of which nobody has said what it is, the format is null.
  void readFormat(const JsonValue& vm, const rt::String& name) {
    const auto format = vm.member("format");
    if (!format || format->dump() == "null") return;
    const rt::String text = vm.text("format").value_or(format->dump());
    if (const auto right = model::imageFormatRight(text))
      document_.problems.push_back(name + ": " + rt::Problem{"format", text, *right}.text());
    else
      document_.formats[name] = text;
  }

  void readOwn(const JsonValue& vm, const rt::String& name, const model::OwnTable& table) {
    const rt::String member(table.member);
    const auto json = vm.member(member.charPtr());
    if (!json) return;
    const model::VmOwn read(name);
    for (const rt::Problem& problem : statedb::fill(read.record(table.table), json->dump()))
      document_.problems.push_back(name + ": " + member + ": " + problem.text());
    document_.own.try_emplace(name, model::VmOwn(name)).first->second.recordIs(table.table, read);
  }

  ApplyDocument& document_;
  std::set<rt::String> names_;
};

}  // namespace

std::span<const std::string_view> passedOverFields() {
  return std::span(vmFields).subspan(takenFields);
}

ApplyDocument readApplyDocument(std::string_view text) {
  ApplyDocument document;
  rt::String error;
  if (const auto root = JsonValue::parse(text, &error))
    Reader(document).read(*root);
  else
    document.problems.push_back("document: must be JSON, but at " + error);
  return document;
}

}  // namespace ctl
