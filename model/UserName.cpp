#include "model/UserName.h"

#include <fcntl.h>
#include <unistd.h>

#include <string>

#include "runtime/base/Descriptor.h"
#include "runtime/base/Text.h"
#include "runtime/base/VisibleText.h"

namespace model {

namespace {

constexpr size_t mostRead = 1024 * 1024;
constexpr size_t longestName = 40;

// Takes the text up to the next of these off the front.
std::string_view next(std::string_view& text, char end) {
  const std::string_view part = text.substr(0, text.find(end));
  text.remove_prefix(std::min(part.size() + 1, text.size()));
  return part;
}

std::string contentOf(const char* path) {
  const rt::Descriptor file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  std::string text;
  char bytes[16 * 1024];
  ssize_t size = 1;
  while (file && size > 0 && text.size() < mostRead) {
    size = read(file.number(), bytes, sizeof bytes);
    if (size > 0) text.append(bytes, static_cast<size_t>(size));
  }
  return text;
}

}  // namespace

// NAME:PASSWORD:UID:…
rt::String userNameIn(std::string_view lines, uint32_t uid) {
  const std::string number = std::to_string(uid);
  while (!lines.empty()) {
    std::string_view line = next(lines, '\n');
    const std::string_view name = next(line, ':');
    next(line, ':');
    if (next(line, ':') == number && !name.empty() && name.size() <= longestName)
      return rt::visibleText(name);
  }
  return "uid " + rt::toText(uid);
}

rt::String userName(uint32_t uid) { return userNameIn(contentOf("/etc/passwd"), uid); }

}  // namespace model
