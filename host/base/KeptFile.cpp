#include "host/base/KeptFile.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "host/base/Report.h"
#include "runtime/base/Descriptor.h"
#include "runtime/base/Exception.h"
#include "runtime/base/OwnFile.h"
#include "runtime/loop/FileDescriptor.h"

namespace host {

namespace {

constexpr mode_t readByGroup = 0640;

struct Place {
  int directory;
  const char* name;
  const char* newName;
};

// The functions below are run in a process forked from one that has threads: system calls alone.

bool writeAll(int file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = ::write(file, text.data(), text.size());
    if (count < 0 && errno != EINTR) return false;
    if (count > 0) text.remove_prefix(static_cast<size_t>(count));
  }
  return fsync(file) == 0;
}

bool append(const Place& place, std::string_view text) {
  constexpr int harmless = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  const rt::Descriptor file(openat(place.directory, place.name, O_WRONLY | O_APPEND | harmless));
  return file && writeAll(file.number(), text);
}

// A reader, or a power failure, finds the old one or the new one.
bool replace(const Place& place, std::string_view text) {
  const rt::Descriptor file(
      rt::openOwnFile(place.directory, place.newName, O_WRONLY | O_TRUNC, readByGroup));
  return file && writeAll(file.number(), text) &&
         renameat(place.directory, place.newName, place.directory, place.name) == 0 &&
         fsync(place.directory) == 0;
}

// Holds on to nothing else of ours, for it may stand still as long as the disk does. Its exit
// status is the error.
[[noreturn]] void writeAndEnd(const Place& place, const KeptFile::Part& part) noexcept {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  prctl(PR_SET_NAME, "file-writer");
  const auto directory = static_cast<unsigned>(place.directory);
  if (directory > STDERR_FILENO + 1) (void)close_range(STDERR_FILENO + 1, directory - 1, 0);
  (void)close_range(directory + 1, ~0U, 0);
  const bool isDone = part.isWhole ? replace(place, part.text) : append(place, part.text);
  _exit(isDone ? 0 : errno);
}

// The process that writes does not come back. Waits until that has closed what it has from us: who
// connects to a socket that we have closed would find it open still. Not for long: there may be a
// file among it whose file system does not answer.
pid_t begun(const Place& place, const KeptFile::Part& part) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return -1;
  const rt::Descriptor isClosed(ends[0]);
  rt::Descriptor closes(ends[1]);
  const pid_t pid = fork();
  if (pid == 0) writeAndEnd(place, part);
  closes.reset();
  constexpr int atMost = 100;  // ms
  pollfd end{isClosed.number(), POLLIN, 0};
  if (pid > 0) (void)poll(&end, 1, atMost);
  return pid;
}

}  // namespace

// The process that writes.
class KeptFile::Writer final : public rt::StateMachineOf<KeptFile::Writer> {
 public:
  Writer(KeptFile& owner, const Place& place, const Part& part)
      : owner_(owner),
        pid_(begun(place, part)),
        over_(*this, rt::make<rt::FileDescriptor>("writer of " + owner.name_)) {
    if (pid_ < 0) throw rt::ErrnoException(errno, "no process to write a file");
    over_->descriptorIs(static_cast<int>(syscall(SYS_pidfd_open, pid_, 0)));
    if (over_->descriptor() < 0) throw rt::ErrnoException(errno, "a writer cannot be followed");
    over_->notifyOnReadableIs(true);
    handleInitialized();
  }
  // Its number is its own until it is waited for, which nobody else does.
  ~Writer() override {
    if (pid_ <= 0 || isReaped_) return;
    if (waitpid(pid_, nullptr, WNOHANG) == 0) kill(pid_, SIGKILL);
    (void)waitpid(pid_, nullptr, WNOHANG);
  }

  // Waits until it has ended, so long at most; whether it has.
  bool endsWithin(rt::Seconds time) const {
    pollfd end{over_->descriptor(), POLLIN, 0};
    return poll(&end, 1, static_cast<int>(std::ceil(time.value() * 1000))) > 0;
  }
  // What came of it: an error of the system's, or 0. It has ended.
  int error() {
    int status = 0;
    isReaped_ = waitpid(pid_, &status, WNOHANG) == pid_;
    return isReaped_ && WIFEXITED(status) ? WEXITSTATUS(status) : EINTR;
  }

  static constexpr std::string_view typeName = "host::KeptFile::Writer";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &Writer::initialized>>;

 private:
  void handleInitialized() { initializedIs(true); }
  void handleOver() { owner_.over(error()); }

  KeptFile& owner_;
  const pid_t pid_;
  bool isReaped_ = false;

  rt::Reactor<Writer, rt::FileDescriptor,
              rt::On<&rt::FileDescriptor::readable, &Writer::handleOver>>
      over_;
};

KeptFile::KeptFile(const KeptDirectory& directory, rt::String name, Next next, rt::Clock::Ptr clock)
    : directory_(directory),
      name_(std::move(name)),
      newName_(name_ + ".new"),
      next_(std::move(next)),
      clock_(*this, std::move(clock)) {
  handleInitialized();
}

KeptFile::~KeptFile() = default;

void KeptFile::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
}

void KeptFile::changed() {
  if (hasNews_ || directory_.number() < 0) return;
  hasNews_ = true;
  clock_.timeMinIs(std::max(clock_.notifier()->now() + delay, writtenAt_ + interval));
}

// One that has not ended after a minute stands still: it is asked again a minute later.
void KeptFile::handleClock() {
  clock_.timeMinIs(writer_ && hasNews_ ? clock_.notifier()->now() + interval
                                       : rt::Seconds::infinity());
  if (hasNews_ && !writer_) write();
}

void KeptFile::write() {
  hasNews_ = false;
  const std::optional<Part> part = next_(mustBeWhole_);
  if (!part) return;
  mustBeWhole_ = false;
  writtenAt_ = clock_.notifier()->now();
  try {
    writer_ = rt::make<Writer>(
        *this, Place{directory_.number(), name_.charPtr(), newName_.charPtr()}, *part);
  } catch (const rt::ErrnoException& failure) {
    over(failure.error());
  }
}

void KeptFile::over(int error) {
  const rt::Ptr<Writer> ended = std::exchange(writer_, nullptr);  // which may be asking
  const int before = std::exchange(error_, error);
  if (error != before)
    report(directory_.path() + "/" + name_ + ": " +
           (error == 0 ? rt::String("written again")
                       : rt::String("cannot be written: ") + std::strerror(error)));
  if (error == 0) return;
  mustBeWhole_ = true;
  changed();
}

void KeptFile::finish(rt::Seconds atMost) {
  if (writer_ && writer_->endsWithin(atMost)) over(writer_->error());
  if (!hasNews_ || writer_) return;
  write();
  if (writer_ && writer_->endsWithin(atMost)) over(writer_->error());
  writer_ = nullptr;
}

}  // namespace host
