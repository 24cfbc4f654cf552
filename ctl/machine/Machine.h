// What vmctl looks at to tell how the machine is. A test answers instead.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "runtime/base/String.h"

namespace ctl {

// How a program ended.
struct ProgramEnd {
  int status = 0;     // its exit; -1: it could not be run, or was ended by a signal
  rt::String output;  // both its outputs
};

// Bytes that the file system of the run directory must have left, or the status is not written.
constexpr uint64_t leastRunSpace = 256 * 1024;

class Machine {
 public:
  enum class Access : uint8_t { exists, use, execute };  // use: read and write

  Machine() = default;
  Machine(const Machine&) = delete;
  virtual ~Machine() = default;

  // 0, or the errno with which the path refuses this user.
  virtual int accessError(const rt::String& path, Access access) const = 0;
  // Likewise, for opening a device.
  virtual int openError(const rt::String& device) const = 0;
  // A small file, such as one of /proc.
  virtual std::optional<rt::String> text(const rt::String& path) const = 0;
  // Of what is in a directory, in no order; none when it cannot be read.
  virtual std::vector<rt::String> names(const rt::String& directory) const = 0;
  // Bytes that a directory's file system has for us.
  virtual std::optional<uint64_t> freeSpace(const rt::String& directory) const = 0;
  // Runs a program, which is found as a shell finds it, to its end.
  virtual ProgramEnd run(const std::vector<rt::String>& words) const = 0;
  // Where this program lies.
  virtual rt::String ownDirectory() const = 0;
  // Seconds since 1970.
  virtual int64_t timeOfDay() const = 0;
};

}  // namespace ctl
