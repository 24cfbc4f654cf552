#include "host/service/Supervision.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/syslog.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "runtime/base/Format.h"

namespace host {

namespace {

// The manager's library, loaded only where there is a manager: it brings a megabyte of others.
class SystemdLibrary {
 public:
  SystemdLibrary()
      : handle_(isWanted() ? dlopen("libsystemd.so.0", RTLD_NOW | RTLD_LOCAL) : nullptr) {
    load(notify, "sd_notify");
    load(watchdogEnabled, "sd_watchdog_enabled");
    load(journalSend, "sd_journal_send_with_location");
  }

  // As the library declares them; null: there is none.
  int (*notify)(int unsetEnvironment, const char* state) = nullptr;
  int (*watchdogEnabled)(int unsetEnvironment, uint64_t* microseconds) = nullptr;
  int (*journalSend)(const char* file, const char* line, const char* function, const char* format,
                     ...) = nullptr;

 private:
  static bool isWanted() {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody sets any while threads run
    return std::getenv("NOTIFY_SOCKET") || std::getenv("JOURNAL_STREAM");
  }
  template <class Function>
  void load(Function& function, const char* name) {
    if (handle_) function = reinterpret_cast<Function>(dlsym(handle_, name));
  }

  void* const handle_;
};

const SystemdLibrary& systemd() {
  static const SystemdLibrary library;
  return library;
}

void notify(const char* state) {
  if (systemd().notify) systemd().notify(0, state);
}

int priorityOf(unsigned level) {
  if (level <= 1) return LOG_WARNING;
  return level <= 2 ? LOG_INFO : LOG_DEBUG;
}

}  // namespace

void notifyReady() { notify("READY=1\nSTATUS=running"); }
void notifyStopping() { notify("STOPPING=1"); }
void notifyAlive() { notify("WATCHDOG=1"); }

std::optional<rt::Seconds> aliveInterval() {
  uint64_t microseconds = 0;
  if (!systemd().watchdogEnabled || systemd().watchdogEnabled(0, &microseconds) <= 0)
    return std::nullopt;
  return rt::Seconds(static_cast<double>(microseconds) / 2e6);
}

bool logsToJournal() {
  const char* const stream = std::getenv("JOURNAL_STREAM");  // NOLINT(concurrency-mt-unsafe)
  if (!stream || !systemd().journalSend) return false;
  struct stat own {};
  return fstat(STDERR_FILENO, &own) == 0 &&
         rt::format("%ju:%ju", static_cast<uintmax_t>(own.st_dev),
                    static_cast<uintmax_t>(own.st_ino)) == stream;
}

void writeJournal(const rt::TraceRecord& record, const rt::String& vm) {
  const rt::String message(record.message);
  const rt::String file = rt::String("CODE_FILE=") + record.file;
  const rt::String line = rt::format("CODE_LINE=%u", record.line);
  const rt::String field = "VMAGENT_VM=" + vm;
  // A null ends the fields: without a VM the last one is left out.
  systemd().journalSend(file.charPtr(), line.charPtr(), record.function, "MESSAGE=%s",
                        message.charPtr(), "PRIORITY=%d", priorityOf(record.level),
                        "VMAGENT_LEVEL=%u", record.level, vm.empty() ? nullptr : "%s",
                        field.charPtr(), nullptr);
}

}  // namespace host
