// The kernel's files by which control groups are made and asked.
#pragma once

#include <optional>
#include <vector>

#include "runtime/base/String.h"

namespace host {

// None of them waits for anybody but the kernel.
class MachineFiles {
 public:
  MachineFiles() = default;
  MachineFiles(const MachineFiles&) = delete;
  virtual ~MachineFiles() = default;

  // The first 4 KiB; nothing when it cannot be read.
  virtual std::optional<rt::String> read(const rt::String& path) const = 0;
  // Into a file that is there. These return 0, or the errno.
  virtual int write(const rt::String& path, const rt::String& text) = 0;
  // One that is there already is made.
  virtual int makeDirectory(const rt::String& path) = 0;
  // One that is not empty of processes stays: EBUSY.
  virtual int removeDirectory(const rt::String& path) = 0;
  // The names of those in it.
  virtual std::vector<rt::String> directories(const rt::String& path) const = 0;
};

class KernelFiles final : public MachineFiles {
 public:
  std::optional<rt::String> read(const rt::String& path) const override;
  int write(const rt::String& path, const rt::String& text) override;
  int makeDirectory(const rt::String& path) override;
  int removeDirectory(const rt::String& path) override;
  std::vector<rt::String> directories(const rt::String& path) const override;
};

}  // namespace host
