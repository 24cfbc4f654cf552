// The configuration as one file, and back.
#pragma once

#include "ctl/machine/NewFile.h"
#include "statedb/Record.h"

namespace ctl {

// Puts a copy of the database of that directory there. Throws statedb::Error and rt::Exception.
void backUpConfig(const rt::String& stateDir, const FilePlace& place);

// All rows of such a file; what of an older format it has is read as it would be now. The file
// stays as it is. Throws likewise.
statedb::Snapshot readConfigBackup(const rt::String& file);

}  // namespace ctl
