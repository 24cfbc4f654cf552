// Reads again and again what guests take of the machine.
#pragma once

#include "ctl/line/Context.h"
#include "ctl/view/GuestLoad.h"
#include "ctl/view/TopView.h"
#include "ctl/view/VmRows.h"

namespace ctl {

// Reads the rows of the database again when they have changed, and counters each time.
class GuestSampler {
 public:
  // `names`: those to look at; none: all.
  GuestSampler(Context& context, const std::vector<rt::String>& names);
  GuestSampler(const GuestSampler&) = delete;

  // Of the guests that have a process now.
  Sample take();
  // What all guests may take together.
  MachineShare share() const;

 private:
  // What a half of the database was when it was read.
  struct Moment {
    statedb::Half half;
    rt::String table;  // one of that half
    std::optional<statedb::Cursor> cursor;
  };

  bool hasChanged(Moment& moment);
  void readRows();
  // Whether its process is one; else it is QEMU's.
  bool hasShim(const rt::String& name) const;
  bool isWished(const rt::String& name) const;

  Context& context_;
  const std::vector<rt::String> names_;
  Moment config_;
  Moment status_;
  model::DaemonStatus::Ptr daemon_;  // null: it has said nothing
  std::vector<GuestFacts> guests_;   // without counters
  GuestCounterReader reader_;
  const double processors_;  // of the machine
};

// What the rows say of a guest, without counters.
GuestFacts guestFactsOf(const VmRow& row);
}  // namespace ctl
