#include "host/guests/ProcessText.h"

#include <fcntl.h>
#include <unistd.h>

#include "runtime/base/Descriptor.h"
#include "runtime/base/Text.h"

namespace host {

std::string directoryOf(int32_t pid) { return "/proc/" + rt::toText(pid).str(); }

// (A stream would throw when the process has gone.)
std::string textOf(const std::string& process, const char* name) {
  const rt::Descriptor file(open((process + name).c_str(), O_RDONLY | O_CLOEXEC));
  std::string text;
  char part[4096];
  for (ssize_t count = 0; file && (count = read(file.number(), part, sizeof part)) > 0;)
    text.append(part, static_cast<size_t>(count));
  return text;
}

}  // namespace host
