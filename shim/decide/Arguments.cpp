#include "shim/decide/Arguments.h"

#include <algorithm>
#include <charconv>

#include "guest/Emulation.h"

namespace shim {

namespace {

constexpr std::string_view sandbox =
    "on,obsolete=deny,elevateprivileges=deny,spawn=deny,resourcecontrol=deny";

// Where in "a,key=value,b=…" the part of that key stands, as it is written.
std::string_view partOf(std::string_view text, std::string_view key) {
  size_t begin = 0;
  while (begin < text.size()) {
    size_t end = text.find(',', begin);
    // A doubled comma stands for one.
    while (end != std::string_view::npos && text.substr(end + 1).starts_with(','))
      end = text.find(',', end + 2);
    const std::string_view part = text.substr(begin, end - begin);
    if (part.size() > key.size() && part.starts_with(key) && part[key.size()] == '=') return part;
    if (end == std::string_view::npos) break;
    begin = end + 1;
  }
  return {};
}

// The value of the key.
std::optional<std::string> property(std::string_view text, std::string_view key) {
  const std::string_view part = partOf(text, key);
  if (part.empty()) return std::nullopt;
  std::string value;
  for (size_t at = key.size() + 1; at < part.size(); ++at) {
    value += part[at];
    if (part[at] == ',') ++at;
  }
  return value;
}

// The text with another part in the place of the key's.
std::string with(std::string_view text, std::string_view key, const std::string& part) {
  const std::string_view old = partOf(text, key);
  const auto at = static_cast<size_t>(old.data() - text.data());
  return std::string(text.substr(0, at)) + part + std::string(text.substr(at + old.size()));
}

// One option as it is written, with its value where it is one of those that are looked at.
struct Option {
  std::string_view written;
  std::string_view name;  // with one dash
  std::optional<std::string_view> value;
};

bool isLookedAt(std::string_view name) {
  constexpr std::string_view names[] = {"-name", "-chardev", "-drive", "-device",
                                        "-vnc",  "-sandbox", "-m"};
  return std::find(std::begin(names), std::end(names), name) != std::end(names);
}

std::vector<Option> optionsOf(const std::vector<std::string>& arguments) {
  std::vector<Option> options;
  options.reserve(arguments.size());
  for (size_t i = 0; i < arguments.size(); ++i) {
    Option option{arguments[i], arguments[i], std::nullopt};
    if (option.name.starts_with("--")) option.name.remove_prefix(1);  // QEMU takes both
    if (isLookedAt(option.name) && i + 1 < arguments.size()) option.value = arguments[++i];
    options.push_back(option);
  }
  return options;
}

bool isMonitor(std::string_view chardev) {
  return chardev.starts_with("socket,") && property(chardev, "id") == "monitor";
}

bool isSerialLine(std::string_view chardev) {
  return chardev.starts_with("pty,") && property(chardev, "id") == "serial0";
}

bool isDriveWithoutFormat(std::string_view value) {
  return property(value, "file") && !property(value, "format");
}

// Whether the drive is a CD's.
bool isOfCd(const std::vector<Option>& options, std::string_view drive) {
  const auto id = property(drive, "id");
  return id && std::any_of(options.begin(), options.end(), [&](const Option& option) {
           const std::string_view value = option.value.value_or("");
           return option.name == "-device" && value.starts_with("ide-cd,") &&
                  property(value, "drive") == id;
         });
}

bool isCardWithoutBackend(std::string_view value) {
  return property(value, "mac") && property(value, "id") && !property(value, "netdev");
}

Card cardFrom(std::string_view value) {
  Card card{*property(value, "id"), *property(value, "mac"),
            std::string(value.substr(0, value.find(',')))};
  for (char& c : card.mac)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return card;
}

// What an operator knows the option as; empty for what no two runs of a VM differ in.
std::string settingOf(const Option& option) {
  const std::string_view value = option.value.value_or("");
  if (option.name == "-m") return setting::memory;
  if (option.name == "-vnc" || option.name == "-nographic") return setting::display;
  if (option.name == "-drive" || (option.name == "-device" && property(value, "drive")))
    return setting::diskImage;
  if (option.name == "-name" || (option.name == "-chardev" && isMonitor(value))) return {};
  return setting::rest;
}

// Mebibytes, as the agent writes them; nothing for what is no such number.
std::optional<unsigned> memoryOf(std::string_view value) {
  unsigned memory = 0;
  const char* const last = value.data() + value.size();
  const auto [at, error] = std::from_chars(value.data(), last, memory);
  return error == std::errc() && at == last ? std::optional(memory) : std::nullopt;
}

// Where in "HOST:DISPLAY…" the colon is; npos for what is no such thing ("none", "unix:PATH").
size_t colonOf(std::string_view display) {
  return display.starts_with("unix:") ? std::string_view::npos
                                      : display.substr(0, display.find(',')).rfind(':');
}

// DISPLAY of "HOST:DISPLAY…"; nothing for what is no such thing.
std::optional<unsigned> screenOf(std::string_view value) {
  const size_t colon = colonOf(value);
  if (colon == std::string_view::npos) return std::nullopt;
  unsigned screen = 0;
  const char* const begin = value.data() + colon + 1;
  const auto [at, error] = std::from_chars(begin, value.data() + value.size(), screen);
  return error == std::errc() ? std::optional(screen) : std::nullopt;
}

// "HOST:DISPLAY…" without an address: nobody is served but who is brought. What is no such thing
// stays.
std::string listeningNowhere(std::string_view value) {
  if (!screenOf(value)) return std::string(value);
  const size_t comma = value.find(',');
  return "none" + std::string(comma == std::string_view::npos ? "" : value.substr(comma));
}

std::string nameRight(std::string_view name) {
  if (name == "." || name == "..") return "must not be a directory's own name";
  if (name.find('/') != std::string_view::npos)
    return "must be without '/', for a directory is named by it";
  if (name.find(',') != std::string_view::npos)
    return "must be without ',', which QEMU takes for the begin of an option";
  return {};
}

void requireSound(const CommandLine& line) {
  if (line.name.empty())
    throw ArgumentError("the command line names no VM: it must have -name NAME");
  if (const std::string right = nameRight(line.name); !right.empty())
    throw ArgumentError("-name: '" + line.name + "' is refused: it " + right);
  if (line.monitorPath.empty())
    throw ArgumentError(
        "the command line has no monitor: it must have -chardev socket,id=monitor,path=PATH");
}

// Writes the new command line.
class Rewriter {
 public:
  Rewriter(const CommandLine& line, const Facts& facts, const Policy& policy)
      : line_(line), facts_(facts), policy_(policy) {}

  std::vector<std::string> result() {
    for (const Option& option : optionsOf(line_.arguments)) rewrite(option);
    if (!sandboxed_) add("-sandbox", std::string(sandbox));
    return std::move(new_);
  }

 private:
  void rewrite(const Option& option) {
    if (option.name == "-nodefconfig") return;
    if (option.name == "-enable-kvm")
      return add("-accel", usesKvm(facts_, policy_) ? "kvm" : emulation());
    if (!option.value) {
      new_.emplace_back(option.written);
      return;
    }
    if (option.name == "-device" && isCardWithoutBackend(*option.value)) return addCard(option);
    if (option.name == "-drive" && isDriveWithoutFormat(*option.value)) return addDrive(option);
    if (option.name == "-sandbox") sandboxed_ = true;
    add(option.written, valueOf(option));
  }

  // Told nothing, QEMU keeps an eighth of the machine's memory full of code, which no limit of the
  // guest's could foresee.
  std::string emulation() const {
    if (!line_.memory) return "tcg";
    return "tcg,tb-size=" + std::to_string(guest::codeCacheOf(*line_.memory));
  }

  std::string valueOf(const Option& option) const {
    const std::string_view value = *option.value;
    if (option.name == "-vnc") return listeningNowhere(value);
    if (option.name == "-chardev" && isMonitor(value))
      return "socket,id=monitor,fd=" + std::to_string(monitorDescriptor);
    if (option.name == "-chardev" && isSerialLine(value))
      return "socket,id=serial0,fd=" + std::to_string(serialDescriptor);
    return std::string(value);
  }

  void add(std::string_view option, std::string value) {
    new_.emplace_back(option);
    new_.push_back(std::move(value));
  }

  void addDrive(const Option& option) {
    const std::string_view value = *option.value;
    const auto file = facts_.images.find(*property(value, "file"));
    if (file == facts_.images.end()) return add(option.written, std::string(value) + ",format=raw");
    const auto& [set, descriptors, format, isBlockDevice] = file->second;
    for (const int number : descriptors)
      add("-add-fd", "fd=" + std::to_string(number) + ",set=" + std::to_string(set));
    // QEMU tells a block device by its path, which this is not.
    const std::string name =
        (isBlockDevice ? "file.driver=host_device,file.filename=" : "file=") + fdSetName(set);
    add(option.written, with(value, "file", name) + ",format=" + format);
  }

  // Without a backend, a card can be given one later only by way of a hub.
  void addCard(const Option& option) {
    const std::string port = hubPortId(*property(*option.value, "id"));
    add("-netdev", "hubport,hubid=" + std::to_string(hub_++) + ",id=" + port);
    add(option.written, std::string(*option.value) + ",netdev=" + port);
  }

  const CommandLine& line_;
  const Facts& facts_;
  const Policy& policy_;
  std::vector<std::string> new_;
  size_t hub_ = 0;
  bool sandboxed_ = false;
};

}  // namespace

std::string fdSetName(int set) { return "/dev/fdset/" + std::to_string(set); }

std::string hubPortId(std::string_view peerId) { return "hub-" + std::string(peerId); }

CommandLine readCommandLine(std::vector<std::string> arguments) {
  CommandLine line;
  line.arguments = std::move(arguments);
  const std::vector<Option> options = optionsOf(line.arguments);
  for (const Option& option : options) {
    const bool isCard =
        option.value && option.name == "-device" && isCardWithoutBackend(*option.value);
    if (const std::string setting = isCard ? "" : settingOf(option); !setting.empty())
      line.settings[setting] +=
          std::string(option.written) + " " + std::string(option.value.value_or("")) + " ";
    if (!option.value) continue;
    const std::string_view value = *option.value;
    if (option.name == "-name") line.name = value;
    if (option.name == "-chardev" && isMonitor(value))
      line.monitorPath = property(value, "path").value_or("");
    if (option.name == "-drive" && isDriveWithoutFormat(value))
      line.drives.push_back({*property(value, "file"), isOfCd(options, value)});
    if (isCard) line.cards.push_back(cardFrom(value));
    if (option.name == "-vnc") line.screen = screenOf(value);
    if (option.name == "-m") line.memory = memoryOf(value);
  }
  requireSound(line);
  return line;
}

std::vector<std::string> rewrittenArguments(const CommandLine& line, const Facts& facts,
                                            const Policy& policy) {
  return Rewriter(line, facts, policy).result();
}

bool usesKvm(const Facts& facts, const Policy& policy) {
  if (policy.acceleration == guest::Acceleration::automatic) return facts.kvmUsable;
  return policy.acceleration == guest::Acceleration::kvm;
}

}  // namespace shim
