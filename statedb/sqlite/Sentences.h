// What a user reads when a database file cannot be used: which, why, and the way out.
#pragma once

#include "runtime/base/Seconds.h"
#include "statedb/Error.h"

namespace statedb::sqlite {

Error missingDirectory(const rt::String& directory);
Error missingFile(const rt::String& file);
Error removed(const rt::String& file);
Error emptied(const rt::String& file);
Error replaced(const rt::String& file);
Error locked(const rt::String& file, rt::Seconds patience);
Error corrupt(const rt::String& file, const rt::String& detail);
Error newer(const rt::String& file, int64_t version, size_t known);
Error older(const rt::String& file, int64_t version, size_t known);
Error foreign(const rt::String& file);
Error full(const rt::String& file);
Error readOnly(const rt::String& file);
Error denied(const rt::String& file);
Error failed(const rt::String& file, const rt::String& detail);

// The error for a failed system call on `file`, or for SQLite's `detail` where that says more.
Error fromErrno(const rt::String& file, int error, const rt::String& detail);
// Why `file` cannot be written.
Error notWritable(const rt::String& file);

rt::String directoryOf(const rt::String& file);

}  // namespace statedb::sqlite
