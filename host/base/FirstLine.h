// Short texts that shims leave in files.
#pragma once

#include "runtime/base/String.h"

namespace host {

// The first line of the file, cut at a reasonable length; empty when it cannot be read.
rt::String firstLine(const rt::String& path);

}  // namespace host
