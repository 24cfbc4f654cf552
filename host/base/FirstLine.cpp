#include "host/base/FirstLine.h"

#include <fstream>
#include <string>

namespace host {

rt::String firstLine(const rt::String& path) {
  constexpr size_t longest = 512;
  std::ifstream file(path.str());
  std::string line;
  if (!std::getline(file, line)) return {};
  return rt::String(line.substr(0, longest));
}

}  // namespace host
