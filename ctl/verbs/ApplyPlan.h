// What has to be done so that the configuration is as a document says.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "ctl/verbs/ApplyDocument.h"
#include "ctl/verbs/Images.h"
#include "ctl/view/VmRows.h"

namespace ctl {

enum class StepKind : uint8_t { add, change, remove, keep };

struct Step {
  StepKind kind = StepKind::keep;
  rt::String name{};
  uint64_t revision = 0;       // of the row that this was planned on
  Vm::VmConfig::Ptr config{};  // as it will be; null when it is removed
  ImageWish image{};           // what is said of its disk image
  model::VmImage::Ptr imageBefore = rt::make<model::VmImage>("");  // never null
  model::VmOwn own{};                                              // as it will be
  OwnRows ownBefore{};
  std::vector<rt::String> changes{};  // such as "memory=512"
  bool needsRestart = false;
  bool wasEnabled = false;  // of one that is removed
};

struct Plan {
  std::vector<Step> steps;           // each VM once, in order of name
  std::vector<rt::String> problems;  // sentences: what is wrong with the outcome
};

// Writes the VM, what its disk image is, and the host's own rows.
void putVm(Context& context, statedb::Transaction& transaction, const Step& step);
// What its disk image is as far as that is known; empty: it is not.
rt::String formatOf(const Step& step);

// "memory=512, vncPort=0 (takes effect at the next start)".
rt::String changesText(const Step& step);

// Pure. With `prune`, VMs that are not in the document are removed. VMs may exchange what only one
// may have: they are checked against each other as they will be.
enum class Others : uint8_t { stay, prune };
Plan planOf(const std::map<rt::String, VmRow>& rows, const ApplyDocument& document, Others others,
            const model::MachineLimits& limits);

}  // namespace ctl
