#include "guest/GroupText.h"

#include <algorithm>
#include <charconv>

namespace guest {

namespace {

constexpr std::string_view blanks = " \n";

}  // namespace

bool hasWord(std::string_view list, std::string_view word) {
  while (!list.empty()) {
    const size_t end = std::min(list.find_first_of(blanks), list.size());
    if (list.substr(0, end) == word) return true;
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return false;
}

uint64_t numberOf(std::string_view text, std::string_view word) {
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    if (line.starts_with(word) && line.size() > word.size() && line[word.size()] == ' ') {
      uint64_t number = 0;
      std::from_chars(line.data() + word.size() + 1, line.data() + line.size(), number);
      return number;
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return 0;
}

}  // namespace guest
