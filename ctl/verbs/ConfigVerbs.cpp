#include "ctl/verbs/ConfigVerbs.h"

#include "ctl/line/Fields.h"
#include "ctl/verbs/Budget.h"
#include "ctl/verbs/Configuration.h"
#include "ctl/view/CardInterfaces.h"
#include "model/RestartNeeded.h"
#include "model/VmConfigCheck.h"
#include "model/VmFields.h"
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

// A path as it is meant; any other value as it is.
rt::String meant(Context& context, const model::VmField& field, const rt::String& value) {
  return field.kind == model::VmField::Kind::path ? fromHere(context, value) : value;
}

// A guest that runs has its card on the other interface in a moment.
void tellMoves(Context& context, const Vm::VmConfig& before, const Vm::VmConfig& after) {
  if (!before.enabled() || !after.enabled()) return;
  for (const auto& [key, card] : after.vnicConfigs()) {
    const auto was = before.vnicConfig(key);
    if (was && was->macAddr() == card->macAddr() && was->intfName() != card->intfName())
      context.tell(after.name() + ": " + key + " goes from " + was->intfName() + " to " +
                   card->intfName());
  }
}

void tellChanged(Context& context, const Changed& changed,
                 Configuration::Mode mode = Configuration::Mode::write) {
  const rt::String& name = changed.after->name();
  const bool isOpenedOtherwise = changed.formatBefore != changed.formatAfter;
  if (statedb::documentOf(*changed.before) == statedb::documentOf(*changed.after) &&
      !isOpenedOtherwise && isSame(changed.ownBefore, changed.ownAfter))
    return context.tell(name + ": was so already");
  if (mode == Configuration::Mode::tell) return context.tell(name + ": would be changed");
  // Where nothing runs, the next start takes it by itself.
  const bool hasGuest = vmNamed(context, name).process->process() != "none";
  if (hasGuest && model::needsRestart({*changed.before, changed.formatBefore},
                                      {*changed.after, changed.formatAfter}))
    context.tell(name + ": changed; takes effect at the next start ('vmctl restart " + name + "')");
  else
    context.tell(name + ": changed");
  tellMoves(context, *changed.before, *changed.after);
  complainOfDelay(context);
}

[[noreturn]] void refuseCard(const Vm::VmConfig& vm, const rt::String& key) {
  std::vector<std::string_view> keys;
  for (const auto& [each, card] : vm.vnicConfigs()) keys.emplace_back(each);
  throw Refusal(Exit::noSuch,
                vm.name() + ": there is no card '" + key + "'" + rt::didYouMean(key, keys));
}

// "intf=Ethernet2,mac=...": what it says of the card, as fields of the VM.
void addCardFields(const rt::String& key, const rt::String& word, std::vector<Assignment>& fields) {
  const std::string_view all = word;
  for (size_t begin = 0; begin <= all.size();) {
    const size_t comma = std::min(all.find(',', begin), all.size());
    const auto [part, value] =
        assignmentOf(rt::String(all.substr(begin, comma - begin)), "intf=Ethernet2");
    rt::String name = part;
    for (const model::VmField& field : model::vmFields())
      if (field.isOfCard && field.option == std::string_view(part)) name = field.name;
    fields.push_back({"vnicConfig." + key + "." + name, value});
    begin = comma + 1;
  }
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

void addImageProblem(Context& context, const VmRecords& records,
                     std::vector<rt::Problem>& problems) {
  if (auto problem = problemOfNamed(context, records.vm, records.image.format()))
    problems.push_back(std::move(*problem));
}

std::vector<Assignment> optionFields(Context& context, const Arguments& arguments) {
  std::vector<Assignment> fields;
  for (const model::VmField& field : model::vmFields()) {
    if (field.isOfCard || field.option.empty()) continue;
    if (const auto value = arguments.value(field.option))
      fields.push_back({field.name, meant(context, field, *value)});
  }
  return fields;
}

std::vector<Assignment> wordFields(Context& context, std::span<const rt::String> words) {
  std::vector<Assignment> fields;
  for (const rt::String& word : words) {
    Assignment& typed = fields.emplace_back(assignmentOf(word, "memory=512"));
    if (const model::VmField* const field = model::vmFieldNamed(typed.field))
      typed.value = meant(context, *field, typed.value);
  }
  return fields;
}

Configuration::Mode modeOf(const Arguments& arguments) {
  return arguments.has("dry-run") ? Configuration::Mode::tell : Configuration::Mode::write;
}

void complainOfDelay(Context& context) {
  if (!context.daemonRuns())
    context.complain("vmagentd is not running: nothing happens until it does");
}

Exit addVm(Context& context, const Arguments& arguments) {
  if (!arguments.has("disk")) throw Refusal(Exit::usage, "'add' needs --disk FILE");
  const std::vector<Card> cards = cardsOf(arguments.values("nic"));
  const std::vector<Assignment> fields = optionFields(context, arguments);
  const rt::String& name = arguments.words().front();
  requireNoSurprise(context, name, arguments.has("enabled"));
  Configuration configuration(context, modeOf(arguments));
  const FreshMac freshMac = [&](const Vm::VmConfig& vm) { return configuration.freshMac(vm); };
  const auto change = [&](const VmRecords& records, std::vector<rt::Problem>& problems) {
    model::vmDefaults(records.vm);
    records.vm.enabledIs(arguments.has("enabled"));
    assign(records, fields, context.world().limits, problems);
    addImageProblem(context, records, problems);
    for (const Card& card : cards) addCard(records.vm, card, freshMac, problems);
  };
  const auto added = configuration.add(name, change);
  const auto& vm = added.after;
  warnOfImage(context, *vm, added.formatAfter);
  warnOfSharedImage(context, configuration.configs(), *vm);
  warnOfInterfaces(context, *vm);
  warnOfRoom(context, nullptr, *vm, added.ownAfter);
  if (modeOf(arguments) == Configuration::Mode::tell) {
    context.tell(name + (vm->enabled() ? ": would be added and enabled" : ": would be added"));
    return Exit::done;
  }
  context.tell(name + (vm->enabled() ? ": added and enabled" : ": added"));
  complainOfDelay(context);
  return Exit::done;
}

Exit setVm(Context& context, const Arguments& arguments) {
  const std::vector<Assignment> assignments =
      wordFields(context, std::span(arguments.words()).subspan(1));
  bool isImageTouched = false;
  bool isCardTouched = false;
  bool isRoomTouched = false;
  for (const auto& [name, value] : assignments) {
    isImageTouched = isImageTouched || name == "diskImage" || name == "enabled" || name == "format";
    isCardTouched = isCardTouched || name.str().ends_with(".intfName");
    isRoomTouched = isRoomTouched || name == "memory" || name == "vncPort" || name == "enabled" ||
                    name == "memoryReserve";
  }
  const auto change = [&](const VmRecords& records, std::vector<rt::Problem>& problems) {
    const rt::String before = records.vm.diskImage();
    assign(records, assignments, context.world().limits, problems);
    if (records.vm.diskImage() != before) addImageProblem(context, records, problems);
  };
  const rt::String& name = arguments.words().front();
  const VmRow before = vmNamed(context, name);
  Configuration configuration(context, modeOf(arguments));
  const auto changed = configuration.change(name, change);
  if (isImageTouched) warnOfImage(context, *changed.after, changed.formatAfter);
  if (changed.before->diskImage() != changed.after->diskImage())
    warnOfSharedImage(context, configuration.configs(), *changed.after);
  if (isCardTouched) warnOfInterfaces(context, *changed.after);
  if (isRoomTouched) warnOfRoom(context, &before, *changed.after, changed.ownAfter);
  tellChanged(context, changed, modeOf(arguments));
  return Exit::done;
}

Exit addNic(Context& context, const Arguments& arguments) {
  const std::vector<rt::String>& words = arguments.words();
  Card card = cardOf(words[1]);
  if (const auto key = arguments.value("key")) {
    if (key->empty()) throw Refusal(Exit::usage, "--key: must not be empty");
    card.key = *key;
  }
  Configuration configuration(context, modeOf(arguments));
  const FreshMac freshMac = [&](const Vm::VmConfig& vm) { return configuration.freshMac(vm); };
  const auto add = [&](const VmRecords& records, std::vector<rt::Problem>& problems) {
    addCard(records.vm, card, freshMac, problems);
  };
  const auto changed = configuration.change(words[0], add);
  warnOfInterfaces(context, *changed.after);
  tellChanged(context, changed, modeOf(arguments));
  return Exit::done;
}

Exit setNic(Context& context, const Arguments& arguments) {
  const std::vector<rt::String>& words = arguments.words();
  std::vector<Assignment> fields;
  for (size_t i = 2; i < words.size(); ++i) addCardFields(words[1], words[i], fields);
  const auto change = [&](const VmRecords& records, std::vector<rt::Problem>& problems) {
    if (!records.vm.vnicConfigHas(words[1])) refuseCard(records.vm, words[1]);
    assign(records, fields, context.world().limits, problems);
  };
  const auto changed = Configuration(context, modeOf(arguments)).change(words[0], change);
  warnOfInterfaces(context, *changed.after);
  tellChanged(context, changed, modeOf(arguments));
  return Exit::done;
}

Exit removeNic(Context& context, const Arguments& arguments) {
  const std::vector<rt::String>& words = arguments.words();
  const auto remove = [&](const VmRecords& records, auto&) {
    if (!records.vm.vnicConfigDel(words[1])) refuseCard(records.vm, words[1]);
  };
  tellChanged(context, Configuration(context).change(words[0], remove));
  return Exit::done;
}

}  // namespace ctl
