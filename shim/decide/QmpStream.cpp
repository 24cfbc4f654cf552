#include "shim/decide/QmpStream.h"

#include <utility>

namespace shim {

std::vector<Message> QmpStream::take(std::string_view bytes, rt::Descriptors descriptors) {
  std::vector<Message> messages;
  while (!bytes.empty()) {
    const size_t end = bytes.find('\n');
    const bool last = end == std::string_view::npos || end + 1 == bytes.size();
    append(bytes.substr(0, end));
    if (last && unfinished_.descriptors.empty())
      unfinished_.descriptors = std::exchange(descriptors, {});
    if (end == std::string_view::npos) break;
    endLine(messages);
    bytes.remove_prefix(end + 1);
  }
  return messages;
}

void QmpStream::append(std::string_view bytes) {
  if (tooLong_ || bytes.size() > longest_ - unfinished_.text.size()) {
    if (!tooLong_) ++dropped_;
    tooLong_ = true;
    unfinished_.text.clear();
    return;
  }
  unfinished_.text += bytes;
}

void QmpStream::endLine(std::vector<Message>& messages) {
  Message whole = std::exchange(unfinished_, {});
  if (std::exchange(tooLong_, false)) return;
  while (!whole.text.empty() && whole.text.back() == '\r') whole.text.pop_back();
  if (!whole.text.empty() || !whole.descriptors.empty()) messages.push_back(std::move(whole));
}

}  // namespace shim
