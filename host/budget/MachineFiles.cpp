#include "host/budget/MachineFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "runtime/base/Descriptor.h"

namespace host {

namespace {

constexpr size_t mostRead = 4096;
constexpr mode_t directoryMode = 0755;

}  // namespace

std::optional<rt::String> KernelFiles::read(const rt::String& path) const {
  const rt::Descriptor file(open(path.charPtr(), O_RDONLY | O_CLOEXEC));
  if (!file) return std::nullopt;
  char text[mostRead];
  const ssize_t size = ::read(file.number(), text, sizeof text);
  if (size < 0) return std::nullopt;
  return rt::String(text, static_cast<size_t>(size));
}

int KernelFiles::write(const rt::String& path, const rt::String& text) {
  const rt::Descriptor file(open(path.charPtr(), O_WRONLY | O_CLOEXEC));
  if (!file) return errno;
  return ::write(file.number(), text.charPtr(), text.size()) < 0 ? errno : 0;
}

int KernelFiles::makeDirectory(const rt::String& path) {
  return mkdir(path.charPtr(), directoryMode) == 0 || errno == EEXIST ? 0 : errno;
}

int KernelFiles::removeDirectory(const rt::String& path) {
  return rmdir(path.charPtr()) == 0 ? 0 : errno;
}

std::vector<rt::String> KernelFiles::directories(const rt::String& path) const {
  std::vector<rt::String> names;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(path.str(), error)) {
    std::error_code unknown;
    if (entry.is_directory(unknown)) names.emplace_back(entry.path().filename().string());
  }
  return names;
}

}  // namespace host
