// Both protocols are stable and small. The manager's own library waits for who reads, and brings a
// megabyte of others.
#include "host/service/Supervision.h"

#include <endian.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syslog.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>

#include "runtime/base/Descriptor.h"
#include "runtime/base/Format.h"
#include "runtime/base/Text.h"
#include "runtime/base/VisibleText.h"

namespace host {

namespace {

constexpr std::string_view journal = "/run/systemd/journal/socket";
// Well below what a datagram may have.
constexpr size_t longestMessage = 64 * 1024;

// Empty when it is not set.
std::string_view variable(const char* name) {
  const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): no thread sets any
  return value ? value : "";
}

// At once or not at all: 0, or why not. A path that begins with @ is no file's.
int sendDatagram(std::string_view path, std::string_view text) {
  sockaddr_un address{};
  if (path.empty() || path.size() >= sizeof address.sun_path) return EINVAL;
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  if (path.front() == '@') address.sun_path[0] = '\0';
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
  const rt::Descriptor own(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const ssize_t sent = sendto(own.number(), text.data(), text.size(), MSG_NOSIGNAL,
                              reinterpret_cast<const sockaddr*>(&address), size);
  return sent < 0 ? errno : 0;
}

// A manager that is not there has heard all that it can.
bool notify(const char* state) { return sendDatagram(variable("NOTIFY_SOCKET"), state) != EAGAIN; }

int priorityOf(unsigned level) {
  if (level <= 1) return LOG_WARNING;
  return level <= 2 ? LOG_INFO : LOG_DEBUG;
}

// "NAME=value", or with its size where it has more than one line.
void addField(std::string& entry, std::string_view name, std::string_view value) {
  entry += name;
  if (value.find('\n') == std::string_view::npos) {
    entry += '=';
  } else {
    const uint64_t size = htole64(value.size());
    entry += '\n';
    entry.append(reinterpret_cast<const char*>(&size), sizeof size);
  }
  entry += value;
  entry += '\n';
}

}  // namespace

bool notifyReady() { return notify("READY=1\nSTATUS=running"); }
bool notifyStopping() { return notify("STOPPING=1"); }
bool notifyAlive() { return notify("WATCHDOG=1"); }

std::optional<rt::Seconds> aliveInterval() {
  const auto microseconds = rt::fromText<uint64_t>(variable("WATCHDOG_USEC"));
  const std::string_view whose = variable("WATCHDOG_PID");
  if (microseconds.value_or(0) == 0) return std::nullopt;
  if (!whose.empty() && rt::fromText<int32_t>(whose) != getpid()) return std::nullopt;
  return rt::Seconds(static_cast<double>(*microseconds) / 2e6);
}

bool logsToJournal() {
  struct stat own {};
  return fstat(STDERR_FILENO, &own) == 0 &&
         rt::format("%ju:%ju", static_cast<uintmax_t>(own.st_dev),
                    static_cast<uintmax_t>(own.st_ino)) == variable("JOURNAL_STREAM");
}

std::string journalEntry(const rt::TraceRecord& record, const rt::String& vm) {
  std::string entry;
  const std::string message = rt::visibleText(record.message.substr(0, longestMessage), "\n");
  addField(entry, "MESSAGE", std::string_view(message).substr(0, longestMessage));
  addField(entry, "PRIORITY", rt::toText(priorityOf(record.level)));
  addField(entry, "SYSLOG_IDENTIFIER", "vmagentd");
  addField(entry, "CODE_FILE", record.file);
  addField(entry, "CODE_LINE", rt::toText(record.line));
  addField(entry, "CODE_FUNC", record.function);
  addField(entry, "VMAGENT_LEVEL", rt::toText(record.level));
  if (!vm.empty()) addField(entry, "VMAGENT_VM", vm);
  return entry;
}

bool sendToJournal(std::string_view entry) { return sendDatagram(journal, entry) == 0; }

}  // namespace host
