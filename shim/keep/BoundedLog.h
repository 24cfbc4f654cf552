// A log file that does not grow beyond its bounds.
#pragma once

#include <string>
#include <string_view>

#include "runtime/base/Descriptor.h"
#include "shim/base/Place.h"

namespace shim {

// Appends to the file; before that would grow beyond `limit` bytes, it gets ".1" behind its name,
// of which one is kept. On a full disk what is written is lost: the guest goes on.
class BoundedLog {
 public:
  // The group of the directory may read it.
  BoundedLog(Place place, size_t limit);

  void write(std::string_view bytes);

 private:
  void open();
  void writePart(std::string_view bytes);
  void setAside() const;

  const Place place_;
  const size_t limit_;
  rt::Descriptor file_;
  size_t size_ = 0;
};

// A line of a log: "2026-11-21T13:05:09Z WHO: TEXT\n", TEXT as rt::visibleText().
std::string logLine(std::string_view who, std::string_view text);

}  // namespace shim
