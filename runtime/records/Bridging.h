// The bridging input configuration: hosts that the switch is told of rather than learns.
#pragma once

#include "runtime/entity/EntityOf.h"
#include "runtime/net/EthAddr.h"
#include "runtime/net/IntfId.h"
#include "runtime/net/VlanId.h"

namespace Bridging {

// One host with a fixed place. A plain value, compared field by field.
struct ConfiguredHost {
  static constexpr std::string_view typeName = "Bridging::ConfiguredHost";

  rt::EthAddr address;
  rt::IntfId intf;        // where its frames go
  uint8_t entryType = 0;  // 4: configured statically by an agent
  uint32_t sources = 0;   // bit set of who asked for the entry; 0x100000: the VM agent
  bool aging = false;     // whether the entry may expire

  // The fields in their order, between blanks: "52:54:00:12:34:56 Cpu 4 1048576 false".
  rt::String text() const;
  static std::optional<ConfiguredHost> fromText(std::string_view text);

  friend bool operator==(const ConfiguredHost&, const ConfiguredHost&) = default;
};

namespace Input {

// The configured hosts of one VLAN, by MAC address.
class FdbConfig final : public rt::EntityOf<FdbConfig> {
 public:
  using ConfiguredHosts = rt::Collection<rt::EthAddr, ConfiguredHost>;

  explicit FdbConfig(VlanId vlanId) : vlanId_(vlanId) {}

  const VlanId& vlanId() const { return vlanId_; }

  const ConfiguredHosts& configuredHosts() const { return configuredHost_; }
  std::optional<ConfiguredHost> configuredHost(const rt::EthAddr& address) const;
  bool configuredHostHas(const rt::EthAddr& address) const { return configuredHost_.has(address); }
  // Adds the host, or replaces the one with its address.
  void configuredHostIs(const ConfiguredHost& host);
  // RangeException when `address` is not the host's own.
  void configuredHostMount(const rt::EthAddr& address, const ConfiguredHost& host);
  void configuredHostDel(const rt::EthAddr& address);
  void configuredHostDelAll();

  static constexpr std::string_view typeName = "Bridging::Input::FdbConfig";
  using Attributes = rt::AttributeTable<
      rt::Attribute<"vlanId", &FdbConfig::vlanId>,
      rt::CollectionAttribute<"configuredHost", &FdbConfig::configuredHost,
                              &FdbConfig::configuredHosts, &FdbConfig::configuredHostMount,
                              &FdbConfig::configuredHostDel>>;

 private:
  const VlanId vlanId_;
  ConfiguredHosts configuredHost_;
};

// All VLANs with configured hosts.
class Config final : public rt::EntityOf<Config> {
 public:
  using FdbConfigs = rt::Collection<VlanId, FdbConfig::Ptr>;

  const FdbConfigs& fdbConfigs() const { return fdbConfig_; }
  FdbConfig::Ptr fdbConfig(const VlanId& vlanId) const;
  bool fdbConfigHas(const VlanId& vlanId) const { return fdbConfig_.has(vlanId); }
  FdbConfig::Ptr fdbConfigIs(const VlanId& vlanId);
  void fdbConfigMount(const FdbConfig::Ptr& vlan);  // filled before it is told of
  FdbConfig::Ptr fdbConfigDel(const VlanId& vlanId);
  void fdbConfigDelAll();

  static constexpr std::string_view typeName = "Bridging::Input::Config";
  using Attributes = rt::AttributeTable<
      rt::CollectionAttribute<"fdbConfig", &Config::fdbConfig, &Config::fdbConfigs,
                              &Config::fdbConfigMount, &Config::fdbConfigDel>>;

 private:
  FdbConfigs fdbConfig_;
};

}  // namespace Input

}  // namespace Bridging
