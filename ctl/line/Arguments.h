// The command line, taken apart.
#pragma once

#include <optional>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "runtime/base/Exception.h"
#include "runtime/base/Seconds.h"
#include "runtime/base/String.h"

namespace ctl {

// One name means the same with every verb.
struct Option {
  std::string_view name;      // without dashes
  char letter;                // the short form, or NUL; one may mean more with `verb`
  std::string_view argument;  // what help calls its argument; empty: it takes none
  std::string_view help;
  std::string_view verbs = {};  // that the letter means this with; behind those only
};

std::span<const Option> allOptions();
const Option* optionNamed(std::string_view name);
// What the letter means behind these words, of which the first is the verb.
const Option* optionOfLetter(char letter, std::span<const rt::String> words);

// One that there is not; what is to be said of it the table of verbs knows.
class UnknownOption final : public rt::Exception {
 public:
  explicit UnknownOption(const rt::String& option) : Exception(option), option_(option) {}

  const rt::String& option() const { return option_; }  // "--foo" or "-x"

 private:
  rt::String option_;
};

class Arguments {
 public:
  // Options may stand anywhere, as "--name value" or "--name=value"; what follows "--" is none.
  // Refuses with Exit::usage, or throws UnknownOption.
  explicit Arguments(std::span<const rt::String> arguments);

  // All but options. The words of the verb are taken off once it is known.
  const std::vector<rt::String>& words() const { return words_; }
  void wordsDel(size_t count);

  const std::vector<const Option*>& options() const { return options_; }
  bool has(std::string_view option) const;
  // The last one given.
  std::optional<rt::String> value(std::string_view option) const;
  rt::String value(std::string_view option, const rt::String& byDefault) const;
  std::vector<rt::String> values(std::string_view option) const;
  // Of --timeout; 60 when it is not given.
  rt::Seconds timeout() const;
  // Of --tail, 1 or more; nothing when it is not given.
  std::optional<size_t> tail() const;
  // Of --beat, 1 or more; nothing when it is not given.
  std::optional<rt::Seconds> beat() const;

 private:
  void add(const Option& option, const rt::String& value);
  std::optional<rt::Seconds> seconds(std::string_view option, double fewest) const;

  std::vector<rt::String> words_;
  std::vector<const Option*> options_;
  std::vector<rt::String> values_;  // of each option
};

}  // namespace ctl
