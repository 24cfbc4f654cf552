#include "ctl/verbs/CompletionVerbs.h"

#include "ctl/verbs/Completion.h"
#include "ctl/verbs/Removed.h"
#include "ctl/view/VmRows.h"
#include "model/Tables.h"

namespace ctl {

namespace {

// None where the database cannot be used: a shell is no place for complaints.
std::vector<rt::String> keysOf(Context& context, const rt::String& table) {
  std::vector<rt::String> keys;
  try {
    const statedb::Snapshot snapshot = context.db().snapshot({table});
    keys.reserve(snapshot.records.size());
    for (const auto& record : snapshot.records) keys.push_back(record.key);
  } catch (const statedb::Error&) {
  }
  return keys;
}

std::vector<rt::String> vmsOf(Context& context) {
  std::vector<rt::String> names;
  try {
    for (const VmRow& row : allVms(context)) names.push_back(row.name);
  } catch (const statedb::Error&) {
  }
  return names;
}

std::vector<rt::String> interfacesOf(Context& context) {
  std::vector<rt::String> keys = keysOf(context, model::table::interface);
  const std::vector<rt::String> known = keysOf(context, model::table::interfaceStatus);
  keys.insert(keys.end(), known.begin(), known.end());
  return keys;
}

std::vector<rt::String> removedOf(Context& context) {
  std::vector<rt::String> names;
  try {
    for (const RemovedVm& each : removedVms(context)) names.push_back(each.name);
  } catch (const statedb::Error&) {
  }
  return names;
}

std::vector<rt::String> cardsOf(Context& context, const rt::String& name) {
  std::vector<rt::String> keys;
  try {
    const VmRow row = vmNamed(context, name);
    if (!row.config) return keys;
    for (const auto& [key, card] : row.config->vnicConfigs()) keys.push_back(key);
  } catch (const statedb::Error&) {
  }
  return keys;
}

}  // namespace

Exit printCompletion(Context& context, const Arguments& arguments) {
  const rt::String& shell = arguments.words().front();
  const rt::String script = completionScript(shell);
  if (script.empty())
    throw Refusal(Exit::usage,
                  "'completion': '" + shell + "' is refused: must be bash, zsh or fish");
  context.world().out << script;
  return Exit::done;
}

Exit complete(Context& context, const Arguments& arguments) {
  const Nameable nameable{[&] { return vmsOf(context); }, [&] { return interfacesOf(context); },
                          [&] { return removedOf(context); },
                          [&](const rt::String& vm) { return cardsOf(context, vm); }};
  for (const rt::String& word : completionsOf(arguments.words(), nameable))
    context.world().out << visible(word) << '\n';
  return Exit::done;
}

}  // namespace ctl
