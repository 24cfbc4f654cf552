// What of a VM's configuration takes effect at its guest's next start only: all but the fields of
// which VmFields.h says otherwise.
//
// The daemon and the command line ask here, so both say the same.
#pragma once

#include <string_view>
#include <vector>

#include "runtime/records/VmConfig.h"

namespace model {

// The fields that differ and that a guest, which was started with `before`, goes on without, in the
// order of the record: "diskImage", "vnicConfig" for anything about a card. Pure.
std::vector<std::string_view> fieldsForNextStart(const Vm::VmConfig& before,
                                                 const Vm::VmConfig& after);

// A VM as it is asked for: its configuration, and what its disk image is opened as; empty: nobody
// has said.
struct AskedFor {
  const Vm::VmConfig& vm;
  rt::String format;
};

// Whether a part of the change waits for the next start of a guest that may run: one whose VM was
// enabled, and is. Pure.
bool needsRestart(const AskedFor& before, const AskedFor& after);

}  // namespace model
