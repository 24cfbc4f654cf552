#include "host/Options.h"

#include <array>
#include <string_view>
#include <vector>

#include "runtime/base/NearName.h"

namespace host {

namespace {

constexpr const char* help =
    "Usage: vmagentd [OPTION]...\n"
    "Runs the virtual machines of a switch as its state database says, in the foreground.\n"
    "SIGTERM ends it and leaves the guests running.\n"
    "\n"
    "  --state-dir DIR   the configuration's directory (/var/lib/vmagent, or VMAGENT_STATE_DIR)\n"
    "  --run-dir DIR     the status' directory (/run/vmagent, or VMAGENT_RUN_DIR)\n"
    "  --trace LEVELS    none, all, or levels such as 1,2,7 (1,2, or VMAGENT_TRACE)\n"
    "  --version         print the version\n"
    "  --help            print this\n"
    "\n"
    "Exit status: 0 ended by a signal, 1 failed, 2 wrong usage, 4 another daemon runs.\n";

constexpr std::array<std::string_view, 5> names = {"--state-dir", "--run-dir", "--trace",
                                                   "--version", "--help"};

class Reader {
 public:
  explicit Reader(std::span<const char* const> words) : words_(words) {}

  CommandLine read(const Environment& environment) {
    if (environment.stateDir) setValue("--state-dir", environment.stateDir, "VMAGENT_STATE_DIR");
    if (environment.runDir) setValue("--run-dir", environment.runDir, "VMAGENT_RUN_DIR");
    if (environment.trace) setValue("--trace", environment.trace, "VMAGENT_TRACE");
    while (at_ < words_.size() && result_.wish == CommandLine::Wish::run) readWord();
    return std::move(result_);
  }

 private:
  void readWord() {
    const std::string_view word = words_[at_++];
    const size_t equals = word.find('=');
    const std::string_view name = word.substr(0, equals);
    if (name == "--help" || name == "-h") return print(help);
    if (name == "--version") return print("vmagentd " VMAGENT_VERSION "\n");
    if (name != "--state-dir" && name != "--run-dir" && name != "--trace") return unknown(word);
    if (equals != std::string_view::npos) return setValue(name, word.substr(equals + 1), name);
    if (at_ == words_.size()) return refuse(rt::String(name) + " needs a value");
    setValue(name, words_[at_++], name);
  }

  void setValue(std::string_view name, std::string_view value, std::string_view from) {
    const auto wrong = [&](const char* right) {
      refuse(rt::String(from) + ": '" + rt::String(value) + "' is refused: " + right);
    };
    if (name == "--trace") {
      const auto levels = rt::traceLevelsFromText(value);
      if (!levels) return wrong("must be none, all, or levels from 0 to 31 such as 1,2,7");
      result_.options.traceLevels = *levels;
    } else if (value.empty() || value[0] != '/') {
      wrong("must be an absolute path of a directory");
    } else {
      (name == "--state-dir" ? result_.options.stateDir : result_.options.runDir) =
          rt::String(value);
    }
  }

  void unknown(std::string_view word) {
    if (!word.starts_with("-"))
      return refuse("'" + rt::String(word) + "' is refused: there are no arguments, only options");
    const std::vector<std::string_view> known(names.begin(), names.end());
    refuse("there is no option '" + rt::String(word) + "'" + rt::didYouMean(word, known));
  }

  void print(const char* text) {
    result_.wish = CommandLine::Wish::print;
    result_.text = text;
  }
  void refuse(const rt::String& text) {
    result_.wish = CommandLine::Wish::usageError;
    result_.text = "vmagentd: " + text + "\nTry 'vmagentd --help'.\n";
  }

  const std::span<const char* const> words_;
  size_t at_ = 0;
  CommandLine result_;
};

}  // namespace

CommandLine readCommandLine(std::span<const char* const> words, const Environment& environment) {
  return Reader(words).read(environment);
}

}  // namespace host
