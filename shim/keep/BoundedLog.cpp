#include "shim/keep/BoundedLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>

#include "runtime/base/OwnFile.h"
#include "runtime/base/VisibleText.h"

namespace shim {

namespace {

constexpr mode_t fileMode = 0640;

}  // namespace

BoundedLog::BoundedLog(Place place, size_t limit) : place_(std::move(place)), limit_(limit) {
  open();
}

void BoundedLog::open() {
  file_.reset(
      rt::openOwnFile(place_.directory, place_.name.c_str(), O_WRONLY | O_APPEND, fileMode));
  size_ = 0;
  if (!file_) return;
  struct stat status {};
  if (fstat(file_.number(), &status) == 0) size_ = static_cast<size_t>(status.st_size);
}

void BoundedLog::write(std::string_view bytes) {
  while (!bytes.empty()) {
    writePart(bytes.substr(0, limit_));
    bytes.remove_prefix(bytes.substr(0, limit_).size());
  }
}

void BoundedLog::writePart(std::string_view bytes) {
  if (size_ + bytes.size() > limit_) {
    setAside();
    open();
  }
  if (!file_) return;
  const ssize_t written = ::write(file_.number(), bytes.data(), bytes.size());
  if (written > 0) size_ += static_cast<size_t>(written);
}

// What cannot be kept is lost: the bound holds.
void BoundedLog::setAside() const {
  const char* const name = place_.name.c_str();
  if (renameat(place_.directory, name, place_.directory, (place_.name + ".1").c_str()) != 0)
    (void)unlinkat(place_.directory, name, 0);
}

std::string logLine(std::string_view who, std::string_view text) {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  char stamp[32];
  std::string line(stamp, std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%SZ ", &utc));
  line.append(who).append(": ");
  line += rt::visibleText(text);
  return line + "\n";
}

}  // namespace shim
