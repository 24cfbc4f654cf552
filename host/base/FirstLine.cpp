#include "host/base/FirstLine.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <string_view>

#include "runtime/base/OwnFile.h"

namespace host {

rt::String firstLine(const rt::String& directory, const char* name) {
  constexpr int harmless = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  const int in = open(directory.charPtr(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  const int file = openat(in, name, O_RDONLY | harmless);
  std::array<char, 512> bytes{};
  const ssize_t size = rt::isOwnFile(file) ? read(file, bytes.data(), bytes.size()) : 0;
  if (file >= 0) close(file);
  if (in >= 0) close(in);
  const std::string_view text(bytes.data(), size > 0 ? static_cast<size_t>(size) : 0);
  return rt::String(text.substr(0, text.find('\n')));
}

}  // namespace host
