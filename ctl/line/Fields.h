// What a person writes about a VM, read into its record.
//
// What is no field is refused with Exit::usage, a card that is not there with Exit::noSuch; what is
// no value of its field is added to the problems, with what would do.
#pragma once

#include <functional>
#include <string_view>
#include <vector>

#include "model/VmConfigCheck.h"
#include "model/VmImage.h"
#include "model/VmOwn.h"
#include "runtime/base/Problem.h"
#include "runtime/records/VmConfig.h"

namespace ctl {

// "FIELD=VALUE".
struct Assignment {
  rt::String field;
  rt::String value;
};
Assignment assignmentOf(const rt::String& word, const char* example);

// The records that one VM's fields stand in.
struct VmRecords {
  Vm::VmConfig& vm;
  model::VmImage& image;  // of `format` alone: which image it is of is not said here
  const model::VmOwn& own;
};

// All of them or, where there are problems, those that have none. A field is one of
// model::vmFields(), of a card as "vnicConfig.KEY.FIELD". A card that is not there is made when it
// is given all its fields. Of vmConfig only what cannot be read is a problem here; the rest is the
// check's of the whole VM.
void assign(const VmRecords& records, const std::vector<Assignment>& assignments,
            const model::MachineLimits& limits, std::vector<rt::Problem>& problems);

// "intf=I[,model=M][,mac=A][,key=K]".
struct Card {
  rt::String key;                  // empty: the next one
  std::vector<Assignment> fields;  // that were said
};
Card cardOf(const rt::String& text);

// The key that follows those the VM has: nic00, nic01, ... The guest numbers its cards in key
// order, so it is refused to put one between others by accident.
rt::String nextKey(const Vm::VmConfig& vm);
// An address that no card has, also none of the VM.
using FreshMac = std::function<rt::EthAddr(const Vm::VmConfig& vm)>;
// Returns its key. Refuses a key that is taken with Exit::conflict. Without a word, the card is of
// the default model, and has an address of its own.
rt::String addCard(Vm::VmConfig& vm, const Card& card, const FreshMac& freshMac,
                   std::vector<rt::Problem>& problems);

}  // namespace ctl
