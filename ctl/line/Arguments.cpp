#include "ctl/line/Arguments.h"

#include <algorithm>

#include "ctl/line/Exit.h"
#include "ctl/line/Json.h"
#include "model/VmFields.h"
#include "runtime/base/NearName.h"
#include "runtime/base/Text.h"

namespace ctl {

namespace {

constexpr double defaultTimeout = 60;  // seconds

// Beside the fields of a VM, which come first.
constexpr Option ownOptions[] = {
    {"nic", 0, "CARD", "a network card: [key=K,]model=M,mac=A,intf=I; may be repeated"},
    {"enabled", 0, "", "start it at once"},
    {"key", 0, "KEY", "the card's key; by default nic00, nic01, ... behind those there are"},
    {"for", 0, "FIELD=VALUE", "what to wait for; may be repeated: all must be so"},
    {"wait", 0, "", "return when it is done"},
    {"now", 0, "", "at once: guests are not asked, and lose what they have not written"},
    {"timeout", 0, "S", "seconds that it may take at most; to wait 60 by default"},
    {"force", 0, "", "although a guest, or a file, is lost by it"},
    {"all", 0, "", "all VMs that it can be done to"},
    {"device", 0, "DEV", "the kernel device"},
    {"file", 'f', "FILE", "the document to read; - is standard input"},
    {"view", 0, "", "look at it only: nothing that is typed reaches the guest"},
    {"follow", 'f', "", "go on with what is added, until it is interrupted", "logs events history"},
    {"since", 0, "TIME", "from then on: 1h, 23:50, yesterday, boot, ..."},
    {"after", 0, "SEQ", "what came behind the event of that number"},
    {"count", 'n', "COUNT", "how often it is shown; without it, until it is interrupted"},
    {"tail", 'n', "COUNT", "the last so many only", "logs events history"},
    {"interval", 0, "S", "seconds between two times; 2 by default"},
    {"beat", 0, "S", "tell in JSON every S seconds that it goes on"},
    {"textfile", 0, "FILE", "write it into that file, whole or not at all"},
    {"http", 0, "", "answer the question of HTTP on standard input"},
    {"shim", 0, "", "what the guest's keeper and QEMU wrote"},
    {"dry-run", 0, "", "say what would be done and write nothing"},
    {"exit-code", 0, "", "with --dry-run: exit with 8 when something would be changed"},
    {"prune", 0, "", "remove the VMs that the document does not name"},
    {"output", 'o', "FORMAT", ""},
    {"state-dir", 0, "DIR", "where the configuration is; /var/lib/vmagent, or $VMAGENT_STATE_DIR"},
    {"run-dir", 0, "DIR", "where the status is; /run/vmagent, or $VMAGENT_RUN_DIR"},
    {"help", 'h', "", "tell how to use it"},
    {"version", 'V', "", "tell the version"},
};

std::vector<Option> madeOptions() {
  std::vector<Option> made;
  for (const model::VmField& field : model::vmFields())
    if (!field.isOfCard && !field.option.empty())
      made.push_back({field.option, 0, field.optionValue, field.optionHelp});
  made.insert(made.end(), std::begin(ownOptions), std::end(ownOptions));
  return made;
}

const std::vector<Option> options = madeOptions();

bool hasWord(std::string_view text, std::string_view word) {
  while (!text.empty()) {
    const size_t end = std::min(text.find(' '), text.size());
    if (text.substr(0, end) == word) return true;
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return false;
}

const Option& longOption(std::string_view name) {
  const Option* const found = optionNamed(name);
  if (!found) throw UnknownOption("--" + rt::String(name));
  return *found;
}

const Option& shortOption(char letter, std::span<const rt::String> words) {
  const Option* const found = optionOfLetter(letter, words);
  if (!found) throw UnknownOption("-" + rt::String(&letter, 1));
  return *found;
}

}  // namespace

std::span<const Option> allOptions() { return options; }

const Option* optionNamed(std::string_view name) {
  const auto found = std::find_if(options.begin(), options.end(),
                                  [&](const Option& option) { return option.name == name; });
  return found == options.end() ? nullptr : &*found;
}

const Option* optionOfLetter(char letter, std::span<const rt::String> words) {
  const Option* found = nullptr;
  for (const Option& option : options) {
    if (option.letter != letter || letter == 0) continue;
    if (option.verbs.empty())
      found = &option;
    else if (!words.empty() && hasWord(option.verbs, words.front()))
      return &option;
  }
  return found;
}

Arguments::Arguments(std::span<const rt::String> arguments) {
  bool mayBeOption = true;
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string_view word = arguments[i];
    if (!isUtf8(word))
      throw Refusal(Exit::usage, rt::format("argument %zu is no UTF-8 text", i + 1));
    if (!mayBeOption || word.size() < 2 || word[0] != '-') {
      words_.emplace_back(word);
      continue;
    }
    if (word == "--") {
      mayBeOption = false;
      continue;
    }
    const bool isLong = word[1] == '-';
    const size_t equals = isLong ? word.find('=') : std::string_view::npos;
    const Option& option =
        isLong ? longOption(word.substr(2, equals - 2)) : shortOption(word[1], words_);
    const std::string_view shown = word.substr(0, isLong ? equals : 2);
    const bool isAttached = isLong ? equals != std::string_view::npos : word.size() > 2;
    const auto takes = [&](const char* what) {
      return Refusal(Exit::usage, "option '" + rt::String(shown) + "' takes " + what);
    };
    if (option.argument.empty()) {
      if (isAttached) throw takes("no value");
      add(option, {});
    } else if (isAttached) {
      add(option, word.substr(isLong ? equals + 1 : 2));
    } else {
      if (++i == arguments.size())
        throw takes(("a value: " + rt::String(option.argument)).charPtr());
      add(option, arguments[i]);
    }
  }
}

void Arguments::add(const Option& option, const rt::String& value) {
  options_.push_back(&option);
  values_.push_back(value);
}

void Arguments::wordsDel(size_t count) {
  words_.erase(words_.begin(), words_.begin() + static_cast<std::ptrdiff_t>(count));
}

bool Arguments::has(std::string_view option) const { return value(option).has_value(); }

std::optional<rt::String> Arguments::value(std::string_view option) const {
  std::vector<rt::String> all = values(option);
  if (all.empty()) return std::nullopt;
  return std::move(all.back());
}

rt::String Arguments::value(std::string_view option, const rt::String& byDefault) const {
  return value(option).value_or(byDefault);
}

std::vector<rt::String> Arguments::values(std::string_view option) const {
  std::vector<rt::String> found;
  for (size_t i = 0; i < options_.size(); ++i)
    if (options_[i]->name == option) found.push_back(values_[i]);
  return found;
}

rt::Seconds Arguments::timeout() const {
  return seconds("timeout", 0).value_or(rt::Seconds(defaultTimeout));
}

std::optional<size_t> Arguments::tail() const {
  const auto text = value("tail");
  if (!text) return std::nullopt;
  const auto count = rt::fromText<size_t>(*text);
  if (!count || *count == 0)
    throw Refusal(Exit::usage, "-n: '" + *text + "' is refused: must be 1 or more");
  return count;
}

std::optional<rt::Seconds> Arguments::beat() const { return seconds("beat", 1); }

std::optional<rt::Seconds> Arguments::seconds(std::string_view option, double fewest) const {
  const auto text = value(option);
  if (!text) return std::nullopt;
  const auto seconds = rt::fromText<rt::Seconds>(*text);
  if (seconds && *seconds >= rt::Seconds(fewest)) return seconds;
  throw Refusal(Exit::usage, "--" + rt::String(option) + ": '" + *text +
                                 "' is refused: must be a number of seconds, " +
                                 (fewest > 0 ? "1 or more" : "such as 60"));
}

}  // namespace ctl
