#include "ctl/verbs/Verbs.h"

#include <algorithm>
#include <vector>

#include "ctl/line/Synonyms.h"
#include "ctl/verbs/ConfigVerbs.h"
#include "ctl/verbs/PowerVerbs.h"
#include "ctl/verbs/SwitchVerbs.h"
#include "model/VmFields.h"
#include "runtime/base/NearName.h"

namespace ctl {

namespace {

constexpr std::string_view globalOptions = "state-dir run-dir help";

// "a, b or c"; with another word, or none, in the place of "or".
rt::String listed(const std::vector<std::string_view>& names, const char* last = ", ") {
  rt::String text;
  for (const std::string_view name : names)
    ((text += text.empty() ? "" : name == names.back() ? last : ", ")) += name;
  return text;
}

bool hasWord(std::string_view text, std::string_view word) {
  const std::vector<std::string_view> words = wordsOf(text);
  return std::find(words.begin(), words.end(), word) != words.end();
}

// The verbs of two words that begin with `first`.
std::vector<std::string_view> verbsOf(std::string_view first) {
  std::vector<std::string_view> names;
  for (const Verb& verb : verbs()) {
    const std::vector<std::string_view> words = wordsOf(verb.name);
    if (words.size() != 2 || words[0] != first) continue;
    names.push_back(verb.name);
  }
  return names;
}

// Whether a name is one of those between commas.
bool lists(std::string_view names, std::string_view name) {
  while (!names.empty()) {
    const size_t end = std::min(names.find(','), names.size());
    if (names.substr(0, end) == name) return true;
    names.remove_prefix(std::min(end + 1, names.size()));
  }
  return false;
}

// What to type instead of a verb of others; empty: it is none.
std::string_view insteadOf(std::string_view verb) {
  for (const Synonym& synonym : synonyms())
    if (lists(synonym.theirs, verb)) return synonym.ours;
  return {};
}

Refusal unknown(const rt::String& name, const std::vector<std::string_view>& names,
                const rt::String& others) {
  rt::String hint = rt::didYouMean(name, names);
  if (const std::string_view ours = insteadOf(name); !ours.empty()) (hint = ": ") += ours;
  if (hint.empty()) (hint = "; ") += others;
  return {Exit::usage, "there is no verb '" + name + "'" + hint};
}

// Whether it ends guests or deletes something.
bool isHarmful(const Verb& verb) {
  return verb.run == stopVms || verb.run == restartVms || verb.run == removeVms ||
         verb.run == resetVms || verb.run == interruptVms;
}

// What an unknown verb may have been a slip of the fingers for. The harmful ones are last, and
// meant only where no other is as near; a word of two letters is near to too many.
std::vector<std::string_view> guessedVerbs() {
  std::vector<std::string_view> names;
  for (const bool harmful : {false, true})
    for (const Verb& verb : verbs())
      for (const std::string_view name : {verb.name, verb.alias})
        if (name.size() > 2 && !verb.summary.empty() && isHarmful(verb) == harmful)
          names.push_back(wordsOf(name)[0]);
  return names;
}

rt::String optionHelp(const Option& option, std::string_view formats) {
  rt::String name = "--" + rt::String(option.name);
  if (option.letter != 0) name = "-" + rt::String(&option.letter, 1) + ", " + name;
  if (!option.argument.empty()) name += " " + rt::String(option.argument);
  const rt::String help =
      option.name == "output" ? listed(wordsOf(formats), " or ") : rt::String(option.help);
  return rt::format("  %-22s  %s\n", name.charPtr(), help.charPtr());
}

// A synopsis in lines that a terminal has room for, broken before an option.
rt::String wrapped(std::string_view synopsis) {
  constexpr size_t widest = 100;
  rt::String lines;
  while (synopsis.size() > widest) {
    const size_t at = synopsis.rfind(" [", widest);
    if (at == std::string_view::npos) break;
    lines += rt::String(synopsis.substr(0, at)) + "\n      ";
    synopsis.remove_prefix(at);
  }
  return lines + rt::String(synopsis) + "\n";
}

bool isOfAField(const Option& option) {
  const auto fields = model::vmFields();
  return std::any_of(fields.begin(), fields.end(), [&](const model::VmField& field) {
    return !field.isOfCard && field.option == option.name;
  });
}

rt::String fieldsHelp() {
  rt::String text;
  for (const model::VmField& field : model::vmFields()) {
    const rt::String path = (field.isOfCard ? "vnicConfig.KEY." : "") + rt::String(field.name);
    text += rt::format("  %-23s  %s\n", path.charPtr(), rt::String(field.help).charPtr());
  }
  return text;
}

rt::String withFields(std::string_view help) {
  constexpr std::string_view mark = "\nFIELDS\n";
  const size_t at = help.find(mark);
  if (at == std::string_view::npos) return help;
  return rt::String(help.substr(0, at + 1)) + fieldsHelp() + help.substr(at + mark.size());
}

// The verb among the words, or none; refuses a word that stands where a verb would.
const Verb* verbAmong(std::span<const rt::String> arguments) {
  std::vector<rt::String> words;
  for (const rt::String& word : arguments)
    if (word.empty() || word[0] != '-') words.push_back(word);
  if (!words.empty() && words.front() == "help") words.erase(words.begin());
  for (size_t i = 0; i < words.size(); ++i) {
    const rt::String two = i + 1 < words.size() ? words[i] + " " + words[i + 1] : rt::String();
    for (const rt::String& name : {two, words[i]})
      if (const Verb* const verb = verbNamed(name)) return verb;
  }
  if (words.empty()) return nullptr;
  Arguments rest(words);
  return &takeVerb(rest);
}

// What to say in its place of one of others; empty: it is none.
std::string_view insteadOf(const Verb& verb, std::string_view option) {
  for (const OptionSynonym& synonym : optionSynonyms()) {
    const Option* const ours = optionNamed(synonym.option);
    const bool isOfVerb = synonym.verb.empty() || lists(synonym.verb, verb.name);
    if (isOfVerb && (!ours || takes(verb, *ours)) && lists(synonym.theirs, option))
      return synonym.says;
  }
  return {};
}

rt::String notTaken(const Verb& verb, const Option& option) {
  const rt::String name(verb.name);
  const rt::String typed = "--" + rt::String(option.name);
  const std::string_view says = insteadOf(verb, typed);
  return "'" + name + "' takes no option '" + typed +
         (says.empty() ? "': see 'vmctl " + name + " --help'" : "': " + rt::String(says));
}

}  // namespace

Refusal unknownOption(const rt::String& option, std::span<const rt::String> arguments) {
  const rt::String what = "there is no option '" + option + "'";
  const Verb* const verb = verbAmong(arguments);
  if (!verb) return {Exit::usage, what + "; 'vmctl VERB --help' lists those of a verb"};
  if (const std::string_view says = insteadOf(*verb, option); !says.empty())
    return {Exit::usage, what + ": " + says};
  std::vector<std::string_view> names;
  for (const Option& each : allOptions())
    if (takes(*verb, each)) names.push_back(each.name);
  const bool isLong = option.size() > 2;
  const auto near = isLong ? rt::nearName(option.substr(2), names) : std::nullopt;
  return {Exit::usage, what + (near ? "; did you mean '--" + rt::String(*near) + "'?"
                                    : "; 'vmctl " + rt::String(verb->name) +
                                          " --help' lists those of '" + verb->name + "'")};
}

std::vector<std::string_view> wordsOf(std::string_view text) {
  std::vector<std::string_view> words;
  while (!text.empty()) {
    const size_t end = std::min(text.find(' '), text.size());
    if (end > 0) words.push_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return words;
}

const Verb* verbNamed(std::string_view name) {
  const auto found = std::find_if(verbs().begin(), verbs().end(), [&](const Verb& verb) {
    return verb.name == name || (!verb.alias.empty() && verb.alias == name);
  });
  return found == verbs().end() ? nullptr : &*found;
}

bool isGlobal(const Option& option) { return hasWord(globalOptions, option.name); }

bool takes(const Verb& verb, const Option& option) {
  if (option.name == "output") return !verb.formats.empty();
  return hasWord(verb.options, option.name) || isGlobal(option) ||
         (hasWord(verb.options, "FIELDS") && isOfAField(option));
}

const Verb& takeVerb(Arguments& arguments) {
  const std::vector<rt::String> words = arguments.words();
  if (const Verb* const verb = verbNamed(words[0])) {
    arguments.wordsDel(1);
    return *verb;
  }
  const std::vector<std::string_view> names = verbsOf(words[0]);
  if (names.empty()) throw unknown(words[0], guessedVerbs(), "'vmctl --help' lists them");
  if (words.size() == 1)
    throw Refusal(Exit::usage, "'" + words[0] + "' is half a verb; there are " + listed(names));
  const rt::String name = words[0] + " " + words[1];
  const Verb* const verb = verbNamed(name);
  if (!verb) throw unknown(name, names, "there are " + listed(names, " and "));
  arguments.wordsDel(2);
  return *verb;
}

void requireFit(const Verb& verb, const Arguments& arguments) {
  const rt::String name(verb.name);
  for (const Option* const option : arguments.options())
    if (!takes(verb, *option)) throw Refusal(Exit::usage, notTaken(verb, *option));
  const size_t operands = arguments.words().size();
  if (operands < verb.fewest)
    throw Refusal(Exit::usage,
                  "'" + name + "' needs " + rt::String(verb.operands) + ": " + synopsisOf(verb));
  if (operands > verb.most)
    throw Refusal(Exit::usage, "'" + name + "' does not take '" + arguments.words()[verb.most] +
                                   "': " + synopsisOf(verb));
}

Format formatOf(const Verb& verb, const Arguments& arguments) {
  const auto given = arguments.value("output");
  if (!given) return Format::table;
  const std::vector<std::string_view> formats = wordsOf(verb.formats);
  if (std::find(formats.begin(), formats.end(), std::string_view(*given)) == formats.end()) {
    throw Refusal(Exit::usage,
                  "-o: '" + *given + "' is refused: must be " + listed(formats, " or "));
  }
  if (*given == "json") return Format::json;
  if (*given == "name") return Format::name;
  return *given == "wide" ? Format::wide : Format::table;
}

rt::String synopsisOf(const Verb& verb) {
  rt::String text = "vmctl " + rt::String(verb.name);
  if (!verb.operands.empty()) (text += " ") += verb.operands;
  for (const Option& option : allOptions()) {
    const bool isNeeded = (option.name == "disk" && verb.run == addVm) || option.name == "for" ||
                          option.name == "device" || option.name == "file";
    if (!takes(verb, option) || hasWord(globalOptions, option.name)) continue;
    rt::String shown =
        option.letter ? "-" + rt::String(&option.letter, 1) : "--" + rt::String(option.name);
    if (!option.argument.empty()) (shown += " ") += option.argument;
    text += isNeeded ? " " + shown : " [" + shown + "]";
  }
  return text;
}

rt::String helpOf(const Verb& verb) {
  rt::String text = wrapped("usage: " + synopsisOf(verb));
  if (!verb.alias.empty()) text += "also:  vmctl " + rt::String(verb.alias) + "\n";
  (text += "\n") += withFields(verb.help);
  if (hasWord(verb.options, "wait") && verb.run != stopVms)
    text +=
        "\nWithout --wait it returns when it is written down. With --wait and no vmagentd running "
        "it\nis written down all the same, and the exit is 1 at once.\n";
  text += "\noptions:\n";
  for (const Option& option : allOptions())
    if (takes(verb, option)) text += optionHelp(option, verb.formats);
  return text;
}

rt::String helpOf(std::string_view first) {
  rt::String text;
  for (const std::string_view name : verbsOf(first))
    (text += text.empty() ? "" : "\n") += helpOf(*verbNamed(name));
  return text;
}

rt::String generalHelp() {
  rt::String text =
      "usage: vmctl VERB [OPTION...]\n\n"
      "Writes down which virtual machines this switch is to run, and shows what is so.\n\n";
  for (const Verb& verb : verbs()) {
    if (verb.summary.empty()) continue;
    rt::String name(verb.name);
    if (!verb.alias.empty()) (name += ", ") += verb.alias;
    text += rt::format("  %-29s %s\n", name.charPtr(), rt::String(verb.summary).charPtr());
  }
  text +=
      "\n'vmctl VERB --help' tells more. To begin, and when something does not work:\n\n"
      "  vmctl add web1 --disk /images/web.iso    then 'vmctl enable web1 --wait'\n"
      "  vmctl list                               what is wanted, what is so, why, what next\n"
      "  vmctl why web1                           the same of one VM, in sentences\n"
      "  vmctl show web1                          then 'vmctl logs web1', and with --shim\n"
      "  vmctl doctor                             whether the machine is fit\n"
      "\nOptions for all:\n\n";
  for (const Option& option : allOptions())
    if (hasWord(globalOptions, option.name) || option.name == "version")
      text += optionHelp(option, {});
  text +=
      "\nexit: 0 done, 1 failed, 2 wrong usage, 3 no such VM, 4 conflict, 5 a value is refused,\n"
      "      6 the state database cannot be used, 7 timed out, 8 with --exit-code: it differs.\n"
      "      Of several names, the first that was not done counts; the others are done all the "
      "same.\n";
  return text;
}

}  // namespace ctl
