// What a document of VMs looks like, for programs that check or write one.
#pragma once

#include <span>
#include <string_view>

#include "runtime/base/String.h"

namespace ctl {

// A JSON Schema, of draft 2020-12, for the documents that 'vmctl apply' takes and 'vmctl export',
// 'list -o json' and 'show -o json' write. What it says of a field is what the table of fields
// says: the rules between fields, and those of a machine, are not in it. `passedOver`: the fields
// of a VM that are for readers alone.
rt::String documentSchema(std::span<const std::string_view> passedOver);

}  // namespace ctl
