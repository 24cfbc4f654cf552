#include "shim/BoundedLog.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdio>
#include <ctime>

namespace shim {

namespace {

constexpr mode_t sharedMode = 0660;

}  // namespace

BoundedLog::BoundedLog(std::string path, size_t limit) : path_(std::move(path)), limit_(limit) {
  open();
}

void BoundedLog::open() {
  file_.reset(::open(path_.c_str(),
                     O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC,
                     sharedMode));
  size_ = 0;
  if (!file_) return;
  (void)fchmod(file_.number(), sharedMode);  // whatever the umask
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
    (void)rename(path_.c_str(), (path_ + ".1").c_str());
    open();
  }
  if (!file_) return;
  const ssize_t written = ::write(file_.number(), bytes.data(), bytes.size());
  if (written > 0) size_ += static_cast<size_t>(written);
}

std::string logLine(std::string_view who, std::string_view text) {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  char stamp[32];
  std::string line(stamp, std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%SZ ", &utc));
  line.append(who).append(": ");
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte != 0x7f) {
      line += c;
    } else {
      char hex[8];
      std::snprintf(hex, sizeof hex, "\\x%02x", static_cast<unsigned>(byte));
      line += hex;
    }
  }
  return line + "\n";
}

}  // namespace shim
