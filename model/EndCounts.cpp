#include "model/EndCounts.h"

#include <algorithm>
#include <string_view>

#include "runtime/base/Text.h"

namespace model {

rt::String textOf(const EndCounts& counts) {
  rt::String text;
  for (const auto& [cause, count] : counts)
    text += (text.empty() ? "" : " ") + cause + ":" + rt::toText(count);
  return text;
}

EndCounts endCountsFrom(const rt::String& text) {
  EndCounts counts;
  std::string_view left = text.str();
  while (!left.empty()) {
    const std::string_view word = left.substr(0, left.find(' '));
    left.remove_prefix(std::min(left.size(), word.size() + 1));
    const size_t colon = word.find(':');
    if (colon == 0 || colon == std::string_view::npos) continue;
    const auto count = rt::fromText<uint64_t>(rt::String(word.substr(colon + 1)));
    if (count) counts[rt::String(word.substr(0, colon))] = *count;
  }
  return counts;
}

}  // namespace model
