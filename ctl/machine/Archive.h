// Several files as one, for somebody else to read.
#pragma once

#include <vector>

#include "ctl/machine/NewFile.h"

namespace ctl {

struct PackedFile {
  rt::String name;  // without a directory
  rt::String bytes;
};

// Puts a tar.gz of them there, all in a directory of that name. By the program tar: a library for
// it would be searched for symbols at each start of vmctl. Throws rt::Exception.
void pack(const std::vector<PackedFile>& files, const rt::String& directory,
          const FilePlace& place);

}  // namespace ctl
