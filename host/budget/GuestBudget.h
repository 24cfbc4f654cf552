// What guests may take of the machine, as the VMs' keepers have to do with it.
#pragma once

#include "runtime/records/VmConfig.h"

namespace host {

class GuestBudget {
 public:
  GuestBudget() = default;
  GuestBudget(const GuestBudget&) = delete;
  virtual ~GuestBudget() = default;

  // Keeps what the guest may take for the VM's start, and makes its control group. Returns why it
  // cannot be started now, and then keeps nothing; the VM is told of when that may be over. Empty:
  // it can.
  virtual rt::String reserve(const Vm::VmConfig& vm) = 0;
  // Where its QEMU is to be born; empty: anywhere.
  virtual rt::String groupOf(const rt::String& vm) const = 0;
  // Takes note that the VM has no process any more. One that is known to have ended may still have
  // a QEMU that the kernel takes apart: what it has is given to others once that is gone.
  virtual void ended(const rt::String& vm) = 0;
  // Takes note that the VM is not to be started now.
  virtual void release(const rt::String& vm) = 0;
};

// Where there are no control groups that could bound anybody.
class NoBudget final : public GuestBudget {
 public:
  rt::String reserve(const Vm::VmConfig& /*vm*/) override { return {}; }
  rt::String groupOf(const rt::String& /*vm*/) const override { return {}; }
  void ended(const rt::String& /*vm*/) override {}
  void release(const rt::String& /*vm*/) override {}
};

}  // namespace host
