// Short texts that shims leave in files.
#pragma once

#include "runtime/base/String.h"

namespace host {

// The first line of the file of that name in the directory, cut at 512 bytes. Empty when it is not
// there, or is no file of our own user's: what stands there may be anybody's, and reading it,
// however it is done, could keep us waiting, or show what is not meant to be shown.
rt::String firstLine(const rt::String& directory, const char* name);

}  // namespace host
