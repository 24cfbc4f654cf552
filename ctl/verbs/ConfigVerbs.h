// Verbs that write what a virtual machine is to be.
#pragma once

#include <span>
#include <vector>

#include "ctl/line/Context.h"
#include "ctl/verbs/Configuration.h"

namespace ctl {

Exit addVm(Context& context, const Arguments& arguments);
Exit setVm(Context& context, const Arguments& arguments);
Exit addNic(Context& context, const Arguments& arguments);
Exit setNic(Context& context, const Arguments& arguments);
Exit removeNic(Context& context, const Arguments& arguments);

// What is said of the VM itself: by the options of its fields, and by words FIELD=VALUE. Paths are
// absolute then.
std::vector<Assignment> optionFields(Context& context, const Arguments& arguments);
std::vector<Assignment> wordFields(Context& context, std::span<const rt::String> words);

// Refuses an image that is named now and is no disk.
void addImageProblem(Context& context, const VmRecords& records,
                     std::vector<rt::Problem>& problems);

// What a verb is to do: with --dry-run it only tells.
Configuration::Mode modeOf(const Arguments& arguments);

// For verbs that wrote something: says so when nobody carries it out.
void complainOfDelay(Context& context);

}  // namespace ctl
