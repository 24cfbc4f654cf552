// What QEMU writes on its standard output and error, by lines.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace shim {

// Keeps the last line, which says why QEMU ended if anything does. Pure.
class OutputLines {
 public:
  // A longer line is cut into several.
  static constexpr size_t longestLine = 4096;

  // The lines that these bytes end.
  std::vector<std::string> take(std::string_view bytes);
  // No more will come: what is left is a line, too.
  std::vector<std::string> end();
  // The last one that was no mere warning. QEMU gives one for each hub, which is bound later.
  const std::string& last() const { return last_; }

 private:
  void endLine(std::vector<std::string>& lines);

  std::string unfinished_;
  std::string last_;
};

// Pure: the line with each of the names replaced by what it stands for.
std::string withNames(std::string line, const std::map<std::string, std::string>& names);

}  // namespace shim
