#include "host/Options.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>
#include <vector>

#include "guest/GuestUsers.h"
#include "host/guests/Shims.h"
#include "model/VmConfigCheck.h"
#include "model/VmFields.h"
#include "model/VmLimits.h"
#include "runtime/base/NearName.h"
#include "runtime/base/Text.h"

namespace host {

namespace {

constexpr const char* help =
    "Usage: vmagentd [OPTION]...\n"
    "Runs the virtual machines of a switch as its state database says, in the foreground.\n"
    "SIGTERM ends it and leaves the guests running.\n"
    "\n"
    "  --state-dir DIR      the configuration's directory (/var/lib/vmagent; VMAGENT_STATE_DIR)\n"
    "  --run-dir DIR        the status' directory (/run/vmagent; VMAGENT_RUN_DIR)\n"
    "  --trace LEVELS       none, all, or levels such as 1,2,7 (1,2; VMAGENT_TRACE)\n"
    "  --shim auto|off|PATH what stands between the agent and QEMU (auto: the one installed)\n"
    "  --accel auto|kvm|tcg how guests are run (auto: kvm where it works)\n"
    "  --vnc-listen ADDR    serve the guests' screens at an address (on sockets in DIR/vm/NAME)\n"
    "  --stop-timeout S     seconds that a guest gets to shut down by itself (15)\n"
    "  --guest-users N-M    numbers of users that QEMU is run as, nobody else's (60578-61183)\n"
    "  --qemu-reads PATHS   what QEMU may read beside Debian's files for it, as /a:/b (nothing)\n"
    "  --guest-macs own|any what a guest may send under: its cards' addresses, or any (own)\n"
    "  --guests-memory SIZE what all guests may take, in MiB or with K, M, G (3/4 of the memory)\n"
    "  --guests-cpu N       as many processors, such as 1.5 (all but one)\n"
    "  --bridge DEV         the kernel's bridge that static MAC entries are put into (none)\n"
    "  --keep-history       keep the events on disk, too: they outlive a reboot\n"
    "  --check              tell whether the agent loads and the shim is there, and end\n"
    "  --end-guests         have all guests shut down, while no daemon runs, and end\n"
    "  --version            print the version\n"
    "  --help               print this\n"
    "\n"
    "Exit status: 0 ended by a signal, or done; 1 failed, 2 wrong usage, 4 another daemon runs,\n"
    "6 the database is damaged, or not this program's.\n";

// Why a value is refused; nothing when it is taken.
using Refusal = std::optional<rt::String>;

Refusal directoryIs(rt::String& directory, std::string_view value) {
  if (value.empty() || value[0] != '/') return "must be an absolute path of a directory";
  directory = rt::String(value);
  return std::nullopt;
}

Refusal traceIs(Options& options, std::string_view value) {
  const auto levels = rt::traceLevelsFromText(value);
  if (!levels) return "must be none, all, or levels from 0 to 31 such as 1,2,7";
  options.traceLevels = *levels;
  return std::nullopt;
}

Refusal shimIs(Options& options, std::string_view value) {
  if (value != "auto" && value != "off" && !value.starts_with('/'))
    return "must be auto, off or an absolute path of a program";
  options.shim = rt::String(value);
  return std::nullopt;
}

Refusal accelIs(Options& options, std::string_view value) {
  if (!guest::accelerationFrom(value)) return guest::accelerationRight;
  options.accel = rt::String(value);
  return std::nullopt;
}

Refusal vncListenIs(Options& options, std::string_view value) {
  const auto isPart = [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.' ||
           c == ':' || c == '-' || c == '[' || c == ']';
  };
  if (value.empty() || !std::all_of(value.begin(), value.end(), isPart))
    return "must be an address, such as 127.0.0.1 or ::1";
  options.vncListen = rt::String(value);
  return std::nullopt;
}

Refusal stopTimeoutIs(Options& options, std::string_view value) {
  const auto seconds = rt::fromText<uint32_t>(value);
  if (!seconds || *seconds > guest::longestStopTimeout) return guest::stopTimeoutRight;
  options.stopTimeout = rt::toText(*seconds);
  return std::nullopt;
}

Refusal guestUsersIs(Options& options, std::string_view value) {
  const auto range = guest::userRangeFrom(value);
  if (!range) return "must be two numbers of users, from 1 on, as " + guest::textOf({});
  options.guestUsers = rt::String(guest::textOf(*range));
  return std::nullopt;
}

Refusal qemuReadsIs(Options& options, std::string_view value) {
  for (size_t begin = 0; begin <= value.size();) {
    const size_t end = std::min(value.find(':', begin), value.size());
    if (!value.substr(begin, end - begin).starts_with('/'))
      return "must be absolute paths, with ':' between them";
    begin = end + 1;
  }
  options.qemuReads = rt::String(value);
  return std::nullopt;
}

Refusal guestMacsIs(Options& options, std::string_view value) {
  if (value != "own" && value != "any") return "must be own or any";
  options.holdsSenders = value == "own";
  return std::nullopt;
}

Refusal guestsMemoryIs(Options& options, std::string_view value) {
  const auto mebibytes = model::mebibytesOf(value);
  const uint32_t most = model::machineLimits().memory;
  if (!mebibytes || *mebibytes == 0 || *mebibytes > most)
    return "must be 1 to " + rt::toText(most) +
           " (mebibytes; this machine has no more), or a number with K, M or G behind it";
  options.guestsMemory = *mebibytes;
  return std::nullopt;
}

Refusal guestsCpuIs(Options& options, std::string_view value) {
  const auto processors = model::Processors::fromText(value);
  if (!processors || *processors == model::Processors() || model::cpuMaxRight(*processors))
    return "must be 0.05 to 1024 (processors), such as 1.5";
  options.guestsCpu = *processors;
  return std::nullopt;
}

Refusal bridgeIs(Options& options, std::string_view value) {
  if (value.empty() || value.size() > model::longestIntfName ||
      value.find_first_of("/: \t") != std::string_view::npos)
    return "must be a kernel device's name, 1 to 15 bytes";
  options.bridge = rt::String(value);
  return std::nullopt;
}

struct Setting {
  std::string_view name;
  Refusal (*set)(Options&, std::string_view value);
};
constexpr std::array settings = {
    Setting{"--state-dir",
            [](Options& o, std::string_view v) { return directoryIs(o.stateDir, v); }},
    Setting{"--run-dir", [](Options& o, std::string_view v) { return directoryIs(o.runDir, v); }},
    Setting{"--trace", traceIs},
    Setting{"--shim", shimIs},
    Setting{"--accel", accelIs},
    Setting{"--vnc-listen", vncListenIs},
    Setting{"--stop-timeout", stopTimeoutIs},
    Setting{"--guest-users", guestUsersIs},
    Setting{"--qemu-reads", qemuReadsIs},
    Setting{"--guest-macs", guestMacsIs},
    Setting{"--guests-memory", guestsMemoryIs},
    Setting{"--guests-cpu", guestsCpuIs},
    Setting{"--bridge", bridgeIs},
};

const Setting* settingOf(std::string_view name) {
  const auto* const found = std::find_if(settings.begin(), settings.end(),
                                         [&](const Setting& each) { return each.name == name; });
  return found == settings.end() ? nullptr : found;
}

class Reader {
 public:
  explicit Reader(std::span<const char* const> words) : words_(words) {}

  CommandLine read(const Environment& environment) {
    take("--state-dir", environment.stateDir, guest::variable::stateDir);
    take("--run-dir", environment.runDir, guest::variable::runDir);
    take("--trace", environment.trace, guest::variable::trace);
    while (at_ < words_.size() && result_.wish == CommandLine::Wish::run) readWord();
    if (result_.wish == CommandLine::Wish::run) result_.wish = wish_;
    return std::move(result_);
  }

 private:
  // `from` is where a person gave the value.
  void take(std::string_view name, const char* value, std::string_view from) {
    if (!value) return;
    if (const Refusal right = settingOf(name)->set(result_.options, value))
      refuse(rt::String(from) + ": '" + rt::String(value) + "' is refused: " + *right);
  }

  void readWord() {
    const std::string_view word = words_[at_++];
    if (word == "--help" || word == "-h") return print(help);
    if (word == "--version") return print("vmagentd " VMAGENT_VERSION "\n");
    if (word == "--check") return void(wish_ = CommandLine::Wish::check);
    if (word == "--end-guests") return void(wish_ = CommandLine::Wish::endGuests);
    if (word == "--keep-history") return void(result_.options.keepsHistory = true);
    const size_t equals = word.find('=');
    const std::string_view name = word.substr(0, equals);
    if (!settingOf(name)) return unknown(word);
    if (equals != std::string_view::npos) return take(name, word.data() + equals + 1, name);
    if (at_ == words_.size()) return refuse(rt::String(name) + " needs a value");
    take(name, words_[at_++], name);
  }

  void unknown(std::string_view word) {
    if (!word.starts_with("-"))
      return refuse("'" + rt::String(word) + "' is refused: there are no arguments, only options");
    std::vector<std::string_view> known = {"--check", "--end-guests", "--keep-history", "--version",
                                           "--help"};
    for (const Setting& each : settings) known.push_back(each.name);
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
  CommandLine::Wish wish_ = CommandLine::Wish::run;  // if nothing is wrong
  CommandLine result_;
};

}  // namespace

rt::String version() { return VMAGENT_VERSION; }

rt::Seconds stopPatience(const Options& options) {
  if (options.shim == "off") return rt::Seconds(0);
  return rt::Seconds(rt::fromText<uint32_t>(options.stopTimeout.str()).value_or(0)) + shimsOwn;
}

CommandLine readCommandLine(std::span<const char* const> words, const Environment& environment) {
  return Reader(words).read(environment);
}

}  // namespace host
