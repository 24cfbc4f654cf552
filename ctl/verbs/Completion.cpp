#include "ctl/verbs/Completion.h"

#include <algorithm>

#include "ctl/verbs/Verbs.h"
#include "model/VmFields.h"

namespace ctl {

namespace {

using Words = std::vector<rt::String>;

constexpr std::string_view waitValues =
    "actual=running actual=stopped actual=paused actual=crashed state=Running state=Stopped "
    "enabled=true enabled=false config.enabled=true "
    "config.enabled=false process=none process=running process=ending";

Words stringsOf(std::string_view text) {
  Words strings;
  for (const std::string_view word : wordsOf(text)) strings.emplace_back(word);
  return strings;
}

// The command line until the word in question.
struct Line {
  Words words;                      // that are no options
  const Option* waiting = nullptr;  // that the word is the value of
};

const Option* optionOf(std::string_view word, const Words& words) {
  if (word.substr(0, 2) == "--") return optionNamed(word.substr(2));
  return word.size() == 2 && word[0] == '-' ? optionOfLetter(word[1], words) : nullptr;
}

Line lineOf(const Words& words) {
  Line line;
  for (size_t i = 0; i + 1 < words.size(); ++i) {
    line.waiting = nullptr;
    if (words[i].size() < 2 || words[i][0] != '-') {
      line.words.push_back(words[i]);
      continue;
    }
    const Option* const option = optionOf(words[i], line.words);
    if (!option || option->argument.empty()) continue;
    line.waiting = option;
    ++i;
    if (i + 1 < words.size()) line.waiting = nullptr;
  }
  return line;
}

const Verb* verbOf(Words& words) {
  for (size_t count = std::min<size_t>(2, words.size()); count > 0; --count) {
    const rt::String name = count == 2 ? words[0] + " " + words[1] : words[0];
    const Verb* const verb = verbNamed(name);
    if (!verb || verb->summary.empty()) continue;
    words.erase(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(count));
    return verb;
  }
  return nullptr;
}

// Of the verb's word at `index`.
Words verbWords(const Words& before) {
  Words found;
  if (before.size() > 1) return found;
  if (before.empty()) found.emplace_back("help");
  for (const Verb& verb : verbs()) {
    if (verb.summary.empty()) continue;
    for (const std::string_view name : {verb.name, verb.alias}) {
      const std::vector<std::string_view> words = wordsOf(name);
      if (words.size() > before.size() && (before.empty() || words[0] == before[0]))
        found.emplace_back(words[before.size()]);
    }
  }
  return found;
}

Words optionWords(const Verb* verb) {
  Words found;
  for (const Option& option : allOptions())
    if (verb ? takes(*verb, option) : isGlobal(option))
      found.push_back("--" + rt::String(option.name));
  return found;
}

// The values to choose among; none where there are too many.
Words choicesOf(const model::VmField& field) {
  Words found;
  if (field.values)
    for (const std::string_view value : field.values()) found.emplace_back(value);
  return found;
}

Words optionValues(const Verb* verb, const Option& option) {
  if (option.name == "output" && verb) return stringsOf(verb->formats);
  if (option.name == "for") return stringsOf(waitValues);
  for (const model::VmField& field : model::vmFields())
    if (!field.isOfCard && field.option == option.name) return choicesOf(field);
  return {};
}

void addField(Words& found, const rt::String& path, const model::VmField& field) {
  if (!field.values) found.push_back(path + field.name + "=");
  for (const rt::String& value : choicesOf(field)) found.push_back(path + field.name + "=" + value);
}

Words fieldWords(const Words& cards) {
  Words found;
  for (const model::VmField& field : model::vmFields()) {
    if (field.isOfCard)
      for (const rt::String& key : cards) addField(found, "vnicConfig." + key + ".", field);
    else
      addField(found, {}, field);
  }
  return found;
}

Words operandWords(const Verb& verb, const Words& before, const Nameable& nameable) {
  const std::vector<std::string_view> operands = wordsOf(verb.operands);
  if (operands.empty() || verb.name == "add" || before.size() >= verb.most) return {};
  const std::string_view operand = operands[std::min(before.size(), operands.size() - 1)];
  if (operand == "SHELL") return {"bash", "zsh", "fish"};
  if (operand == "ID") return nameable.interfaces();
  if (operand == "KEY") return nameable.cards(before[0]);
  if (operand.find("FIELD=VALUE") != std::string_view::npos)
    return fieldWords(nameable.cards(before[0]));
  if (operand.find("NAME") == std::string_view::npos) return {};
  Words names = verb.name == "undelete" ? nameable.removed() : nameable.vms();
  const auto isThere = [&](const rt::String& name) {
    return std::find(before.begin(), before.end(), name) != before.end();
  };
  names.erase(std::remove_if(names.begin(), names.end(), isThere), names.end());
  return names;
}

// Where many begin alike up to a "=", that beginning: a value is chosen once its field is.
void foldFields(Words& words, std::string_view current) {
  if (words.size() < 2 || current.find('=') != std::string_view::npos) return;
  for (rt::String& word : words) {
    const size_t equals = word.str().find('=');
    if (equals != std::string::npos) word = word.substr(0, equals + 1);
  }
}

}  // namespace

Words completionsOf(const Words& words, const Nameable& nameable) {
  const rt::String current = words.empty() ? "" : words.back();
  Line line = lineOf(words);
  const bool isHelp = !line.words.empty() && line.words.front() == "help";
  if (isHelp) line.words.erase(line.words.begin());
  const Verb* const verb = verbOf(line.words);
  Words found;
  if (line.waiting)
    found = optionValues(verb, *line.waiting);
  else if (!current.empty() && current[0] == '-')
    found = optionWords(verb);
  else if (!verb)
    found = verbWords(line.words);
  else if (!isHelp)
    found = operandWords(*verb, line.words, nameable);
  const auto isOther = [&](const rt::String& word) {
    return word.str().compare(0, current.size(), current.str()) != 0;
  };
  found.erase(std::remove_if(found.begin(), found.end(), isOther), found.end());
  foldFields(found, current);
  std::sort(found.begin(), found.end());
  found.erase(std::unique(found.begin(), found.end()), found.end());
  return found;
}

}  // namespace ctl
