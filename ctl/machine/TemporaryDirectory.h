// A directory of our own, for as long as this lives.
#pragma once

#include "runtime/base/String.h"

namespace ctl {

// With all that is in it and in its directories, but no deeper. Nobody else may look into it.
class TemporaryDirectory {
 public:
  // In $TMPDIR, or /tmp. Throws rt::ErrnoException.
  TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  ~TemporaryDirectory();

  const rt::String& path() const { return path_; }

 private:
  rt::String path_;
};

}  // namespace ctl
