// A byte stream of QMP, cut into its messages.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "runtime/base/Descriptor.h"

namespace shim {

// One message as it came, without its line end, and the descriptors that came along with it.
struct Message {
  std::string text;
  rt::Descriptors descriptors;
};

// Collects bytes until a line is whole. Keeps at most `longest` bytes, whatever is sent: of a
// longer line nothing is passed on, and the next one is sound again.
class QmpStream {
 public:
  explicit QmpStream(size_t longest) : longest_(longest) {}

  // The messages that these bytes end. The descriptors of one read belong to the last message that
  // it brought bytes of: the kernel ends a read behind the bytes that descriptors were sent with.
  // Of those that come in several reads of a line only the first are kept: else a line that is
  // never ended could use up all there are.
  std::vector<Message> take(std::string_view bytes, rt::Descriptors descriptors);

  // Lines that were too long, since the start.
  size_t dropped() const { return dropped_; }

 private:
  void append(std::string_view bytes);
  void endLine(std::vector<Message>& messages);

  const size_t longest_;
  Message unfinished_;
  bool tooLong_ = false;
  size_t dropped_ = 0;
};

}  // namespace shim
