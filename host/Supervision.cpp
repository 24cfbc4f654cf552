#include "host/Supervision.h"

#ifdef VMAGENT_SYSTEMD
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <sys/stat.h>
#include <sys/syslog.h>
#include <systemd/sd-daemon.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "runtime/base/Format.h"
#endif

namespace host {

#ifdef VMAGENT_SYSTEMD

namespace {

int priorityOf(unsigned level) {
  if (level <= 1) return LOG_WARNING;
  return level <= 2 ? LOG_INFO : LOG_DEBUG;
}

}  // namespace

void notifyReady() { sd_notify(0, "READY=1\nSTATUS=running"); }
void notifyStopping() { sd_notify(0, "STOPPING=1"); }
void notifyAlive() { sd_notify(0, "WATCHDOG=1"); }

std::optional<rt::Seconds> aliveInterval() {
  uint64_t microseconds = 0;
  if (sd_watchdog_enabled(0, &microseconds) <= 0) return std::nullopt;
  return rt::Seconds(static_cast<double>(microseconds) / 2e6);
}

bool logsToJournal() {
  const char* const stream = std::getenv("JOURNAL_STREAM");  // NOLINT(concurrency-mt-unsafe)
  if (!stream) return false;
  struct stat own {};
  return fstat(STDERR_FILENO, &own) == 0 &&
         rt::format("%ju:%ju", static_cast<uintmax_t>(own.st_dev),
                    static_cast<uintmax_t>(own.st_ino)) == stream;
}

void writeJournal(const rt::TraceRecord& record, const rt::String& vm) {
  const rt::String message = rt::String(record.message);
  const rt::String file = rt::String("CODE_FILE=") + record.file;
  const rt::String line = rt::format("CODE_LINE=%u", record.line);
  if (vm.empty())
    sd_journal_send_with_location(file.charPtr(), line.charPtr(), record.function, "MESSAGE=%s",
                                  message.charPtr(), "PRIORITY=%d", priorityOf(record.level),
                                  "VMAGENT_LEVEL=%u", record.level, nullptr);
  else
    sd_journal_send_with_location(file.charPtr(), line.charPtr(), record.function, "MESSAGE=%s",
                                  message.charPtr(), "PRIORITY=%d", priorityOf(record.level),
                                  "VMAGENT_LEVEL=%u", record.level, "VMAGENT_VM=%s", vm.charPtr(),
                                  nullptr);
}

#else

void notifyReady() {}
void notifyStopping() {}
void notifyAlive() {}
std::optional<rt::Seconds> aliveInterval() { return std::nullopt; }
bool logsToJournal() { return false; }
void writeJournal(const rt::TraceRecord&, const rt::String&) {}

#endif

}  // namespace host
