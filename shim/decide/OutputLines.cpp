#include "shim/decide/OutputLines.h"

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

std::string withNames(std::string line, const std::map<std::string, std::string>& names) {
  const auto isDigit = [&](size_t at) {
    return at < line.size() && line[at] >= '0' && line[at] <= '9';
  };
  for (const auto& [name, meaning] : names)
    for (size_t at = line.find(name); at != std::string::npos; at = line.find(name, at)) {
      const bool isIt = !isDigit(at + name.size());  // and not the begin of a longer one
      if (isIt) line.replace(at, name.size(), meaning);
      at += isIt ? meaning.size() : name.size();
    }
  return line;
}

}  // namespace shim
