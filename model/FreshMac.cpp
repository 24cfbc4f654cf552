#include "model/FreshMac.h"

namespace model {

namespace {

rt::EthAddr macOf(uint32_t number) {
  const auto byte = [number](unsigned shift) { return static_cast<uint8_t>(number >> shift); };
  return rt::EthAddr({0x52, 0x54, 0x00, byte(16), byte(8), byte(0)});
}

bool isTaken(const rt::EthAddr& mac, const Vm::VmConfig& vm, const Holders& others) {
  for (const auto& [key, card] : vm.vnicConfigs())
    if (card->macAddr() == mac) return true;
  return others.cardWith(mac, vm.name()).has_value();
}

}  // namespace

rt::EthAddr freshMac(const Vm::VmConfig& vm, const Holders& others, uint32_t number) {
  while (isTaken(macOf(number), vm, others)) ++number;
  return macOf(number);
}

}  // namespace model
