// A VM's rows as a document.
#pragma once

#include <map>

#include "runtime/base/String.h"

namespace ctl {

using DocsByTable = std::map<rt::String, rt::String>;

// As 'vmctl export' would have written it, but that a row that cannot be read is there as it is.
// There must be one of vmConfig.
rt::String vmDocument(const rt::String& name, const DocsByTable& rows);

}  // namespace ctl
