#include "runtime/records/VmStatus.h"

#include "runtime/entity/TypeRegistry.h"

namespace Vm {

VmStatus::Ptr Status::vmStatus(const rt::String& name) const { return vmStatus_.get(name); }

VmStatus::Ptr Status::vmStatusIs(const rt::String& name) {
  return instantiate<&Status::vmStatus>(vmStatus_, name, name);
}

void Status::vmStatusMount(const VmStatus::Ptr& vm) {
  mount<&Status::vmStatus, &VmStatus::name>(vmStatus_, vm);
}

VmStatus::Ptr Status::vmStatusDel(const rt::String& name) {
  return remove<&Status::vmStatus>(vmStatus_, name);
}

void Status::vmStatusDelAll() { removeAll<&Status::vmStatus>(vmStatus_); }

namespace {

const rt::RegisteredTypes<VmStatus, Status> registered;

}  // namespace

}  // namespace Vm
