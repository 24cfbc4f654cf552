// Lines for a reader who may stand still.
#pragma once

#include <mutex>
#include <string>
#include <string_view>

#include "runtime/base/Descriptor.h"

namespace host {

// Writes to a pipe, socket, terminal or file, and never waits for who reads it: what finds no room
// is not written. Owned by main(); used by any thread.
class LineOutput {
 public:
  // `descriptor` stays its owner's. Its flags are left alone, for others may share them.
  explicit LineOutput(int descriptor);
  LineOutput(const LineOutput&) = delete;

  // Whether there was room. A line that was begun is ended before the next one begins.
  bool write(std::string_view line);

 private:
  enum class Kind : unsigned char { file, socket, stream };

  static Kind kindOf(int descriptor);
  bool writeRest();

  std::mutex mutex_;
  const int descriptor_;
  const Kind kind_;
  const rt::Descriptor
      own_;           // the same stream, opened once more for ourselves; none: it could not be
  std::string rest_;  // of a line that was begun
};

}  // namespace host
