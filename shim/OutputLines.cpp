#include "shim/OutputLines.h"

#include <utility>

namespace shim {

std::vector<std::string> OutputLines::take(std::string_view bytes) {
  std::vector<std::string> lines;
  for (const char c : bytes) {
    if (c != '\n') unfinished_ += c;
    if (c == '\n' || unfinished_.size() == longestLine) endLine(lines);
  }
  return lines;
}

std::vector<std::string> OutputLines::end() {
  std::vector<std::string> lines;
  endLine(lines);
  return lines;
}

void OutputLines::endLine(std::vector<std::string>& lines) {
  std::string line = std::exchange(unfinished_, {});
  const size_t end = line.find_last_not_of(" \t\r");
  if (end == std::string::npos) return;
  line.resize(end + 1);
  if (line.find(": warning: ") == std::string::npos) last_ = line;
  lines.push_back(std::move(line));
}

}  // namespace shim
