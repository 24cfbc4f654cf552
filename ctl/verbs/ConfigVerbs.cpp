#include "ctl/verbs/ConfigVerbs.h"

#include "ctl/line/Fields.h"
#include "ctl/verbs/Configuration.h"
#include "ctl/view/CardInterfaces.h"
#include "model/VmConfigCheck.h"
#include "model/VmImage.h"
#include "runtime/base/NearName.h"
#include "runtime/base/Text.h"
#include "statedb/EntityDocument.h"

namespace ctl {

namespace {

std::vector<Card> cardsOf(const std::vector<rt::String>& texts) {
  std::vector<Card> cards;
  cards.reserve(texts.size());
  for (const rt::String& text : texts) cards.push_back(cardOf(text));
  return cards;
}

// A relative path of a file is meant from where the operator is.
rt::String fromHere(Context& context, const rt::String& path) {
  const rt::String here = context.world().workingDirectory();
  if (path.empty() || path.str().front() == '/' || here.empty()) return path;
  return (here == "/" ? here : here + "/") + path;
}

void checkFormat(const rt::String& format, std::vector<rt::Problem>& problems) {
  if (const auto right = model::imageFormatRight(format))
    problems.push_back({"format", format, *right});
}

void tellChanged(Context& context, const Changed& changed) {
  const rt::String& name = changed.after->name();
  const bool isOpenedOtherwise = changed.formatBefore != changed.formatAfter;
  if (statedb::documentOf(*changed.before) == statedb::documentOf(*changed.after) &&
      !isOpenedOtherwise)
    return context.tell(name + ": was so already");
  const bool isOn = changed.before->enabled() && changed.after->enabled();
  if (needsRestart(*changed.before, *changed.after) || (isOn && isOpenedOtherwise))
    context.tell(name + ": changed; takes effect at the next start ('vmctl restart " + name + "')");
  else
    context.tell(name + ": changed");
  complainOfDelay(context);
}

// A guest that runs in no configuration is taken up by its VM, and ends if that is not enabled.
void requireNoSurprise(Context& context, const rt::String& name, bool isEnabled) {
  if (isEnabled || !vmNamed(context, name).isUnknown()) return;
  throw Refusal(Exit::conflict,
                name +
                    ": its guest runs, though in no configuration, and would end: say --enabled "
                    "to keep it, or 'vmctl remove " +
                    name + " --force' first");
}

}  // namespace

void complainOfDelay(Context& context) {
  if (!context.daemonRuns())
    context.complain("vmagentd is not running: nothing happens until it does");
}

Exit addVm(Context& context, const Arguments& arguments) {
  const auto disk = arguments.value("disk");
  if (!disk) throw Refusal(Exit::usage, "'add' needs --disk FILE");
  const std::vector<Card> cards = cardsOf(arguments.values("nic"));
  const std::vector<Assignment> fields{
      {"enabled", arguments.has("enabled") ? "true" : "false"},
      {"diskImage", fromHere(context, *disk)},
      {"memory", arguments.value("memory", rt::toText(model::defaultMemory))},
      {"vncPort", arguments.value("vnc-port", "0")}};
  const rt::String format = arguments.value("format", "");
  const auto change = [&](Vm::VmConfig& vm, std::vector<rt::Problem>& problems) {
    assign(vm, fields, problems);
    for (const Card& card : cards) addCard(vm, card, problems);
    if (arguments.has("format")) checkFormat(format, problems);
  };
  const rt::String& name = arguments.words().front();
  requireNoSurprise(context, name, arguments.has("enabled"));
  Configuration configuration(context);
  const auto added = configuration.add(name, change, format);
  const auto& vm = added.after;
  warnOfImage(context, *vm, added.formatAfter);
  warnOfSharedImage(context, configuration.configs(), *vm);
  warnOfInterfaces(context, *vm);
  context.tell(name + (vm->enabled() ? ": added and enabled" : ": added"));
  complainOfDelay(context);
  return Exit::done;
}

Exit setVm(Context& context, const Arguments& arguments) {
  std::vector<Assignment> assignments;
  std::optional<rt::String> format;
  bool isImageTouched = false;
  bool isCardTouched = false;
  for (size_t i = 1; i < arguments.words().size(); ++i) {
    assignments.push_back(assignmentOf(arguments.words()[i], "memory=512"));
    auto& [field, value] = assignments.back();
    if (field == "diskImage") value = fromHere(context, value);
    isImageTouched =
        isImageTouched || field == "diskImage" || field == "enabled" || field == "format";
    isCardTouched = isCardTouched || field.str().ends_with(".intfName");
    if (field != "format") continue;
    format = value;
    assignments.pop_back();
  }
  const auto change = [&](Vm::VmConfig& vm, std::vector<rt::Problem>& problems) {
    assign(vm, assignments, problems);
    if (format) checkFormat(*format, problems);
  };
  Configuration configuration(context);
  const auto changed = configuration.change(arguments.words().front(), change, format.value_or(""));
  if (isImageTouched) warnOfImage(context, *changed.after, changed.formatAfter);
  if (changed.before->diskImage() != changed.after->diskImage())
    warnOfSharedImage(context, configuration.configs(), *changed.after);
  if (isCardTouched) warnOfInterfaces(context, *changed.after);
  tellChanged(context, changed);
  return Exit::done;
}

Exit addNic(Context& context, const Arguments& arguments) {
  const std::vector<rt::String>& words = arguments.words();
  Card card = cardOf(words[1]);
  if (const auto key = arguments.value("key")) {
    if (key->empty()) throw Refusal(Exit::usage, "--key: must not be empty");
    card.key = *key;
  }
  const auto add = [&](Vm::VmConfig& vm, std::vector<rt::Problem>& problems) {
    addCard(vm, card, problems);
  };
  const auto changed = Configuration(context).change(words[0], add);
  warnOfInterfaces(context, *changed.after);
  tellChanged(context, changed);
  return Exit::done;
}

Exit removeNic(Context& context, const Arguments& arguments) {
  const std::vector<rt::String>& words = arguments.words();
  const auto remove = [&](Vm::VmConfig& vm, std::vector<rt::Problem>&) {
    if (vm.vnicConfigDel(words[1])) return;
    std::vector<std::string_view> keys;
    for (const auto& [key, card] : vm.vnicConfigs()) keys.emplace_back(key);
    throw Refusal(Exit::noSuch, words[0] + ": there is no card '" + words[1] + "'" +
                                    rt::didYouMean(words[1], keys));
  };
  tellChanged(context, Configuration(context).change(words[0], remove));
  return Exit::done;
}

}  // namespace ctl
