#include "host/guests/RestartNeeded.h"

namespace host {

namespace {

bool sameCards(const Vm::VmConfig& a, const Vm::VmConfig& b) {
  if (a.vnicConfigs().size() != b.vnicConfigs().size()) return false;
  for (const auto& [key, card] : a.vnicConfigs()) {
    const auto other = b.vnicConfig(key);
    if (!other || other->model() != card->model() || other->macAddr() != card->macAddr() ||
        other->intfName() != card->intfName())
      return false;
  }
  return true;
}

}  // namespace

rt::String restartNeeded(const Vm::VmConfig& startedWith, const Vm::VmConfig& wanted) {
  rt::String fields;
  const auto compare = [&](bool same, const char* field) {
    if (!same) fields += (fields.empty() ? rt::String() : rt::String(", ")) + field;
  };
  compare(startedWith.diskImage() == wanted.diskImage(), "diskImage");
  compare(startedWith.memory() == wanted.memory(), "memory");
  compare(startedWith.vncPort() == wanted.vncPort(), "vncPort");
  compare(sameCards(startedWith, wanted), "vnicConfig");
  if (fields.empty()) return fields;
  return fields + ": changed since the guest was started; 'vmctl restart " + wanted.name() +
         "' applies it";
}

}  // namespace host
