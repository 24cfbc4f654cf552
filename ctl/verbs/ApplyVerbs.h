// The verbs that take the configuration from a document and write it as one.
#pragma once

#include <functional>
#include <vector>

#include "ctl/line/Context.h"
#include "ctl/verbs/ApplyPlan.h"

namespace ctl {

Exit applyDocument(Context& context, const Arguments& arguments);
Exit exportVms(Context& context, const Arguments& arguments);

struct ApplyMode {
  enum class Writing : uint8_t { done, told };

  Others others = Others::stay;
  Writing writing = Writing::done;
  bool tellsByExit = false;     // whether there is a change, as Exit::differs
  const char* added = "added";  // what is said of a VM that was made
};
// By --prune, --dry-run and --exit-code.
ApplyMode applyModeOf(const Arguments& arguments);

// Adds what is to be written with the VMs, and returns a line for each. May be called again, with
// another transaction. Refuses what is wrong.
using BesideVms = std::function<std::vector<rt::String>(statedb::Transaction& transaction)>;

// Makes the configuration what the document says, in one transaction or not at all, and says what
// that changes. `beside` may be empty.
Exit apply(Context& context, const ApplyDocument& document, const ApplyMode& mode,
           const BesideVms& beside);

}  // namespace ctl
