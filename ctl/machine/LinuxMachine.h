// The machine that vmctl runs on.
#pragma once

#include "ctl/machine/Machine.h"

namespace ctl {

class LinuxMachine final : public Machine {
 public:
  int accessError(const rt::String& path, Access access) const override;
  int openError(const rt::String& device) const override;
  std::optional<rt::String> text(const rt::String& path) const override;
  std::vector<rt::String> names(const rt::String& directory) const override;
  std::optional<uint64_t> freeSpace(const rt::String& directory) const override;
  ProgramEnd run(const std::vector<rt::String>& words) const override;
  rt::String ownDirectory() const override;
  int64_t timeOfDay() const override;
};

}  // namespace ctl
