// Who has what only one may have: the MAC addresses and VNC ports of all configured VMs.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <vector>

#include "runtime/records/VmConfig.h"

namespace model {

// A network card, by its VM's name and its key there.
struct CardName {
  rt::String vm;
  rt::String key;
  friend bool operator==(const CardName&, const CardName&) = default;
  friend auto operator<=>(const CardName&, const CardName&) = default;
};

// What a check asks about the VMs besides the one it is of. Each question is O(log n) in an index.
class Holders {
 public:
  Holders() = default;
  Holders(const Holders&) = delete;
  virtual ~Holders() = default;

  // A card with that address of a VM other than `vm`; nothing when there is none.
  virtual std::optional<CardName> cardWith(const rt::EthAddr& mac, const rt::String& vm) const = 0;
  // The name of an enabled VM other than `vm` that has that port.
  virtual std::optional<rt::String> vmWithPort(uint32_t port, const rt::String& vm) const = 0;
};

// Kept up to date by whoever changes the configuration; it follows nothing by itself. VMs that
// clash may both be in it.
class ConfigIndex final : public Holders {
 public:
  ConfigIndex() = default;
  explicit ConfigIndex(const Vm::Config& config);  // O(n log n)

  // Adds a VM as it is now, or replaces what was known of it. O(log n) for each of its cards.
  void vmIs(const Vm::VmConfig& vm);
  void vmDel(const rt::String& name);

  std::optional<CardName> cardWith(const rt::EthAddr& mac, const rt::String& vm) const override;
  std::optional<rt::String> vmWithPort(uint32_t port, const rt::String& vm) const override;

 private:
  struct Claims {
    std::vector<std::pair<rt::EthAddr, rt::String>> cards;  // address and key
    uint32_t port = 0;                                      // 0: none, or the VM is not enabled
  };

  std::map<rt::String, Claims> vms_;
  std::map<rt::EthAddr, std::set<CardName>> cards_;
  std::map<uint32_t, std::set<rt::String>> ports_;
};

}  // namespace model
