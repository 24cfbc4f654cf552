// What an operator asked for: the configured VMs. Read-only to the agent; written by the state
// database's binding.
#pragma once

#include "runtime/entity/EntityOf.h"
#include "runtime/net/EthAddr.h"

namespace Vm {

// One configured network card. Read when a start is composed.
class VnicConfig final : public rt::EntityOf<VnicConfig> {
 public:
  explicit VnicConfig(rt::String key) : key_(std::move(key)) {}

  const rt::String& key() const { return key_; }

  // QEMU's name of the device model, such as "virtio-net-pci".
  const rt::String& model() const { return model_; }
  void modelIs(const rt::String& model) { assign<&VnicConfig::model>(model_, model); }

  const rt::EthAddr& macAddr() const { return macAddr_; }
  void macAddrIs(const rt::EthAddr& mac) { assign<&VnicConfig::macAddr>(macAddr_, mac); }

  // The switch interface that the card is bridged to.
  const rt::String& intfName() const { return intfName_; }
  void intfNameIs(const rt::String& name) { assign<&VnicConfig::intfName>(intfName_, name); }

  static constexpr std::string_view typeName = "Vm::VnicConfig";
  using Attributes =
      rt::AttributeTable<rt::Attribute<"key", &VnicConfig::key>,
                         rt::Attribute<"model", &VnicConfig::model, &VnicConfig::modelIs>,
                         rt::Attribute<"macAddr", &VnicConfig::macAddr, &VnicConfig::macAddrIs>,
                         rt::Attribute<"intfName", &VnicConfig::intfName, &VnicConfig::intfNameIs>>;

 private:
  const rt::String key_;
  rt::String model_;
  rt::EthAddr macAddr_;
  rt::String intfName_;
};

// One configured VM. The agent watches `enabled` and `diskImage`; all but `enabled` takes effect at
// the next start.
class VmConfig final : public rt::EntityOf<VmConfig> {
 public:
  using VnicConfigs = rt::Collection<rt::String, VnicConfig::Ptr>;

  explicit VmConfig(rt::String name) : name_(std::move(name)) {}

  const rt::String& name() const { return name_; }

  // The operator wants the VM running.
  bool enabled() const { return enabled_; }
  void enabledIs(bool enabled) { assign<&VmConfig::enabled>(enabled_, enabled); }

  // Path of the boot image; its content tells whether it is a CD or a hard disk.
  const rt::String& diskImage() const { return diskImage_; }
  void diskImageIs(const rt::String& path) { assign<&VmConfig::diskImage>(diskImage_, path); }

  // In mebibytes.
  uint32_t memory() const { return memory_; }
  void memoryIs(uint32_t mebibytes) { assign<&VmConfig::memory>(memory_, mebibytes); }

  // TCP port of the display; only 5900 to 5910 give one.
  uint32_t vncPort() const { return vncPort_; }
  void vncPortIs(uint32_t port) { assign<&VmConfig::vncPort>(vncPort_, port); }

  // The cards; the guest numbers them in key order.
  const VnicConfigs& vnicConfigs() const { return vnicConfig_; }
  VnicConfig::Ptr vnicConfig(const rt::String& key) const;
  bool vnicConfigHas(const rt::String& key) const { return vnicConfig_.has(key); }
  VnicConfig::Ptr vnicConfigIs(const rt::String& key);
  void vnicConfigMount(const VnicConfig::Ptr& card);  // filled before it is told of
  VnicConfig::Ptr vnicConfigDel(const rt::String& key);
  void vnicConfigDelAll();

  static constexpr std::string_view typeName = "Vm::VmConfig";
  using Attributes = rt::AttributeTable<
      rt::Attribute<"name", &VmConfig::name>,
      rt::Attribute<"enabled", &VmConfig::enabled, &VmConfig::enabledIs>,
      rt::Attribute<"diskImage", &VmConfig::diskImage, &VmConfig::diskImageIs>,
      rt::Attribute<"memory", &VmConfig::memory, &VmConfig::memoryIs>,
      rt::Attribute<"vncPort", &VmConfig::vncPort, &VmConfig::vncPortIs>,
      rt::CollectionAttribute<"vnicConfig", &VmConfig::vnicConfig, &VmConfig::vnicConfigs,
                              &VmConfig::vnicConfigMount, &VmConfig::vnicConfigDel>>;

 private:
  const rt::String name_;
  bool enabled_ = false;
  rt::String diskImage_;
  uint32_t memory_ = 0;
  uint32_t vncPort_ = 0;
  VnicConfigs vnicConfig_;
};

// The configuration root: all configured VMs by name.
class Config final : public rt::EntityOf<Config> {
 public:
  using VmConfigs = rt::Collection<rt::String, VmConfig::Ptr>;

  const VmConfigs& vmConfigs() const { return vmConfig_; }
  VmConfig::Ptr vmConfig(const rt::String& name) const;
  bool vmConfigHas(const rt::String& name) const { return vmConfig_.has(name); }
  VmConfig::Ptr vmConfigIs(const rt::String& name);
  void vmConfigMount(const VmConfig::Ptr& vm);  // filled before it is told of
  VmConfig::Ptr vmConfigDel(const rt::String& name);
  void vmConfigDelAll();

  static constexpr std::string_view typeName = "Vm::Config";
  using Attributes =
      rt::AttributeTable<rt::CollectionAttribute<"vmConfig", &Config::vmConfig, &Config::vmConfigs,
                                                 &Config::vmConfigMount, &Config::vmConfigDel>>;

 private:
  VmConfigs vmConfig_;
};

}  // namespace Vm
