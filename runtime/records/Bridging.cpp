#include "runtime/records/Bridging.h"

#include <vector>

#include "runtime/base/Exception.h"
#include "runtime/entity/TypeRegistry.h"

namespace Bridging {

rt::String ConfiguredHost::text() const {
  return address.text() + " " + intf.text() + " " + rt::toText(entryType) + " " +
         rt::toText(sources) + " " + rt::toText(aging);
}

std::optional<ConfiguredHost> ConfiguredHost::fromText(std::string_view text) {
  std::vector<std::string_view> words;
  while (words.size() < 5) {
    const auto blank = text.find(' ');
    words.push_back(text.substr(0, blank));
    if (blank == std::string_view::npos) break;
    text.remove_prefix(blank + 1);
  }
  if (words.size() != 5 || words[4].data() != text.data()) return std::nullopt;  // text goes on
  const auto address = rt::fromText<rt::EthAddr>(words[0]);
  const auto entryType = rt::fromText<uint8_t>(words[2]);
  const auto sources = rt::fromText<uint32_t>(words[3]);
  const auto aging = rt::fromText<bool>(words[4]);
  if (!address || !entryType || !sources || !aging) return std::nullopt;
  return ConfiguredHost{*address, rt::IntfId(rt::String(words[1])), *entryType, *sources, *aging};
}

namespace Input {

std::optional<ConfiguredHost> FdbConfig::configuredHost(const rt::EthAddr& address) const {
  const auto* host = configuredHost_.find(address);
  return host ? std::optional(*host) : std::nullopt;
}

void FdbConfig::configuredHostIs(const ConfiguredHost& host) {
  store<&FdbConfig::configuredHost>(configuredHost_, host.address, host);
}

void FdbConfig::configuredHostMount(const rt::EthAddr& address, const ConfiguredHost& host) {
  if (host.address != address)
    throw rt::RangeException("Bridging::Input::FdbConfig.configuredHost[" + address.text() +
                                 "]: the host's address must be its key",
                             host.address.text());
  configuredHostIs(host);
}

void FdbConfig::configuredHostDel(const rt::EthAddr& address) {
  remove<&FdbConfig::configuredHost>(configuredHost_, address);
}

void FdbConfig::configuredHostDelAll() { removeAll<&FdbConfig::configuredHost>(configuredHost_); }

FdbConfig::Ptr Config::fdbConfig(const VlanId& vlanId) const { return fdbConfig_.get(vlanId); }

FdbConfig::Ptr Config::fdbConfigIs(const VlanId& vlanId) {
  return instantiate<&Config::fdbConfig>(fdbConfig_, vlanId, vlanId);
}

void Config::fdbConfigMount(const FdbConfig::Ptr& vlan) {
  mount<&Config::fdbConfig, &FdbConfig::vlanId>(fdbConfig_, vlan);
}

FdbConfig::Ptr Config::fdbConfigDel(const VlanId& vlanId) {
  return remove<&Config::fdbConfig>(fdbConfig_, vlanId);
}

void Config::fdbConfigDelAll() { removeAll<&Config::fdbConfig>(fdbConfig_); }

namespace {

const rt::RegisteredTypes<FdbConfig, Config> registered;

}  // namespace

}  // namespace Input

}  // namespace Bridging
