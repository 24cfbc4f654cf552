#include "runtime/records/VmConfig.h"

#include "runtime/entity/TypeRegistry.h"

namespace Vm {

VnicConfig::Ptr VmConfig::vnicConfig(const rt::String& key) const { return vnicConfig_.get(key); }

VnicConfig::Ptr VmConfig::vnicConfigIs(const rt::String& key) {
  return instantiate<&VmConfig::vnicConfig>(vnicConfig_, key, key);
}

void VmConfig::vnicConfigMount(const VnicConfig::Ptr& card) {
  mount<&VmConfig::vnicConfig, &VnicConfig::key>(vnicConfig_, card);
}

VnicConfig::Ptr VmConfig::vnicConfigDel(const rt::String& key) {
  return remove<&VmConfig::vnicConfig>(vnicConfig_, key);
}

void VmConfig::vnicConfigDelAll() { removeAll<&VmConfig::vnicConfig>(vnicConfig_); }

VmConfig::Ptr Config::vmConfig(const rt::String& name) const { return vmConfig_.get(name); }

VmConfig::Ptr Config::vmConfigIs(const rt::String& name) {
  return instantiate<&Config::vmConfig>(vmConfig_, name, name);
}

void Config::vmConfigMount(const VmConfig::Ptr& vm) {
  mount<&Config::vmConfig, &VmConfig::name>(vmConfig_, vm);
}

VmConfig::Ptr Config::vmConfigDel(const rt::String& name) {
  return remove<&Config::vmConfig>(vmConfig_, name);
}

void Config::vmConfigDelAll() { removeAll<&Config::vmConfig>(vmConfig_); }

namespace {

const rt::RegisteredTypes<VnicConfig, VmConfig, Config> registered;

}  // namespace

}  // namespace Vm
