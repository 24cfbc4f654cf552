#include "model/VmConfigCheck.h"

#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <limits>
#include <map>

#include "guest/VmFiles.h"
#include "model/Tables.h"
#include "model/VmFields.h"
#include "runtime/base/NearName.h"
#include "runtime/base/Text.h"

namespace model {

namespace {

// In order. A model that a newer QEMU brings is added here and nowhere else; `qemu-system-x86_64
// -device help` lists them under "Network devices".
constexpr std::array<std::string_view, 25> models{"e1000",
                                                  "e1000-82544gc",
                                                  "e1000-82545em",
                                                  "e1000e",
                                                  "i82550",
                                                  "i82551",
                                                  "i82557a",
                                                  "i82557b",
                                                  "i82557c",
                                                  "i82558a",
                                                  "i82558b",
                                                  "i82559a",
                                                  "i82559b",
                                                  "i82559c",
                                                  "i82559er",
                                                  "i82562",
                                                  "i82801",
                                                  "ne2k_pci",
                                                  "pcnet",
                                                  "rtl8139",
                                                  "tulip",
                                                  "virtio-net-pci",
                                                  "virtio-net-pci-non-transitional",
                                                  "virtio-net-pci-transitional",
                                                  "vmxnet3"};

// The agent's monitor is a socket of this name, and with it the longest VM name still fits.
constexpr size_t longestMonitorPath = std::string_view(guest::monitorsDirectory).size() + 1 +
                                      longestName + guest::monitorEnding.size();
static_assert(longestMonitorPath < sizeof(sockaddr_un::sun_path));

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isAlphanumeric(char c) {
  return isDigit(c) || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}
bool isNameCharacter(char c) { return isAlphanumeric(c) || c == '.' || c == '_' || c == '-'; }
bool isIntfCharacter(char c) { return isNameCharacter(c) || c == '/'; }
bool isControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }

// Whether the agent would read a VLAN number out of what follows "Vlan": it reads as scanf does,
// which takes signs and leading zeros, and stops at the first other character.
bool looksLikeNumber(std::string_view text) {
  return !text.empty() && (isDigit(text[0]) || text[0] == '+' || text[0] == '-');
}

bool isVlanNumber(std::string_view text) {
  const auto number = rt::fromText<uint16_t>(text);
  return number && *number >= 1 && *number <= 4094 && text[0] != '0';
}

// The problems of one VM.
class Check {
 public:
  Check(const Vm::VmConfig& vm, const Holders& others, const MachineLimits& limits)
      : vm_(vm), others_(others), limits_(limits) {}

  std::vector<rt::Problem> problems() && {
    add("name", vm_.name(), nameRight(vm_.name()));
    for (const VmField& field : vmFields()) {
      if (field.isOfCard || field.table != table::vmConfig) continue;
      const bool isWrong = check(vm_, field, {});
      if (field.name == "vncPort" && !isWrong) checkPortsHolder();
    }
    for (const auto& [key, card] : vm_.vnicConfigs()) checkCard(*card);
    return std::move(problems_);
  }

 private:
  // Whether something is wrong with that field; `path` leads to its record.
  bool check(const rt::Entity& record, const VmField& field, const rt::String& path) {
    const rt::String value = valueOf(record, field);
    return field.right && add(path + field.name, value, field.right(value, limits_));
  }

  void checkPortsHolder() {
    const uint32_t port = vm_.vncPort();
    if (port == 0 || !vm_.enabled()) return;
    if (const auto holder = others_.vmWithPort(port, vm_.name()))
      add("vncPort", rt::toText(port),
          "must be another port, or 0 for none: VM '" + *holder + "' is enabled and has it");
  }

  void checkCard(const Vm::VnicConfig& card) {
    const rt::String path = "vnicConfig." + card.key() + ".";
    for (const VmField& field : vmFields()) {
      if (!field.isOfCard) continue;
      const bool isWrong = check(card, field, path);
      if (field.name == "macAddr" && !isWrong) checkMacsHolder(card, path + field.name);
    }
  }

  void checkMacsHolder(const Vm::VnicConfig& card, const rt::String& path) {
    const rt::EthAddr& mac = card.macAddr();
    const auto [own, isFirst] = ownCards_.try_emplace(mac, card.key());
    if (!isFirst)
      add(path, mac.text(), "must be another address: card '" + own->second + "' has it");
    else if (const auto holder = others_.cardWith(mac, vm_.name()))
      add(path, mac.text(),
          "must be another address: card '" + holder->key + "' of VM '" + holder->vm + "' has it");
  }

  // Whether something is wrong.
  bool add(const rt::String& field, const rt::String& value, const Right& right) {
    if (right) problems_.push_back({field, value, *right});
    return right.has_value();
  }

  const Vm::VmConfig& vm_;
  const Holders& others_;
  const MachineLimits& limits_;
  std::map<rt::EthAddr, rt::String> ownCards_;  // the key of the first card with each address
  std::vector<rt::Problem> problems_;
};

}  // namespace

MachineLimits machineLimits() {
  const auto bytes =
      static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES)) * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
  constexpr uint64_t most = std::numeric_limits<int32_t>::max();  // the agent writes it as an int
  return {static_cast<uint32_t>(std::min(bytes >> 20U, most))};
}

std::vector<rt::Problem> problemsOf(const Vm::VmConfig& vm, const Holders& others,
                                    const MachineLimits& limits) {
  return Check(vm, others, limits).problems();
}

std::vector<rt::Problem> problemsOf(const Vm::VmConfig& vm, const Vm::Config& others,
                                    const MachineLimits& limits) {
  return problemsOf(vm, ConfigIndex(others), limits);
}

void vmDefaults(rt::Entity& vm) { static_cast<Vm::VmConfig&>(vm).memoryIs(defaultMemory); }

Right nameRight(std::string_view value) {
  const bool good = !value.empty() && value.size() <= longestName && isAlphanumeric(value[0]) &&
                    std::all_of(value.begin(), value.end(), isNameCharacter);
  if (good) return std::nullopt;
  return "must be 1 to 64 of A-Z a-z 0-9 . _ -, the first a letter or a digit";
}

Right diskImageRight(std::string_view value) {
  const auto isBad = [](char c) { return c == ' ' || c == ',' || isControl(c); };
  if (value.substr(0, 1) == "/" && std::none_of(value.begin(), value.end(), isBad))
    return std::nullopt;
  return "must be an absolute path without blanks, commas and control characters";
}

Right memoryRight(uint32_t value, const MachineLimits& limits) {
  if (value >= 1 && value <= limits.memory) return std::nullopt;
  return "must be 1 to " + rt::toText(limits.memory) + " (mebibytes; this machine has no more)";
}

Right vncPortRight(uint32_t value) {
  if (value == 0 || (value >= firstVncPort && value <= lastVncPort)) return std::nullopt;
  return "must be 5900 to 5910, or 0 for no display";
}

Right macAddrRight(const rt::EthAddr& value) {
  if (value.isUnicast()) return std::nullopt;
  return "must be one station's address: not all zeros, the second digit even";
}

Right modelRight(std::string_view value) {
  if (std::binary_search(models.begin(), models.end(), value)) return std::nullopt;
  const rt::String near = rt::didYouMean(value, models);
  return "must be a network card of QEMU's" +
         (near.empty() ? ", such as virtio-net-pci, e1000 or rtl8139" : near);
}

Right intfNameRight(std::string_view value) {
  const bool good = !value.empty() && value.size() <= longestIntfName &&
                    std::all_of(value.begin(), value.end(), isIntfCharacter);
  if (value.substr(0, 4) == "Vlan" && looksLikeNumber(value.substr(4)) &&
      !isVlanNumber(value.substr(4)))
    return "must be Vlan1 to Vlan4094, without leading zeros, signs or anything behind the number";
  if (good) return std::nullopt;
  return "must be 1 to 15 of A-Z a-z 0-9 / . _ -";
}

std::span<const std::string_view> nicModels() { return models; }

}  // namespace model
