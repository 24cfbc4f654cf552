#include "Vm/VmAgent/fakes/FakeProcesses.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "Vm/VmAgent/fakes/FakeKernel.h"
#include "runtime/base/Check.h"
#include "runtime/fakes/ManualClock.h"
#include "runtime/loop/ActivityManager.h"

namespace Vm::fakes {

namespace {

FakeProcesses* currentProcesses = nullptr;

int failWith(int& error) {
  errno = std::exchange(error, 0);
  return -1;
}

}  // namespace

FakeProcesses* FakeProcesses::current() { return currentProcesses; }

FakeProcesses::FakeProcesses(EffectLog& log) : log_(log) {
  rt::check(currentProcesses == nullptr, "there are fake processes already");
  currentProcesses = this;
}

FakeProcesses::~FakeProcesses() {
  for (const int32_t pid : living()) end(pid);
  // A child that was not reaped would stay: it and its machine hold each other.
  rt::activityManager().turn(rt::Seconds(0));
  currentProcesses = nullptr;
}

void FakeProcesses::end(int32_t pid, int waitStatus) {
  Child& child = children_.at(pid);
  child.waitStatus = waitStatus;
  child.ended = true;
  child.writeEnd.close();
}

std::vector<int32_t> FakeProcesses::living() const {
  std::vector<int32_t> pids;
  for (const auto& [pid, child] : children_)
    if (!child.ended) pids.push_back(pid);
  return pids;
}

std::string FakeProcesses::pathOf(const std::string& vmName) {
  return "/var/run/" + vmName + ".monitor";
}

QmpPeer& FakeProcesses::monitor(const std::string& vmName) {
  return *monitors_.at(pathOf(vmName)).peers.back();
}

size_t FakeProcesses::connections(const std::string& vmName) const {
  const auto at = monitors_.find(pathOf(vmName));
  return at == monitors_.end() ? 0 : at->second.peers.size();
}

void FakeProcesses::refusalsAre(const std::string& vmName, int attempts) {
  monitors_[pathOf(vmName)].refusals = attempts;
}

int FakeProcesses::connectAttempts(const std::string& vmName) const {
  const auto at = monitors_.find(pathOf(vmName));
  return at == monitors_.end() ? 0 : at->second.attempts;
}

// What the wrapped calls do.
struct SystemCalls {
  static int pipe(FakeProcesses& fake, int (&ends)[2]) {
    if (fake.failPipe) return failWith(fake.failPipe);
    const int result = ::pipe2(ends, 0);
    fake.newestWriteEnd_ = OwnedDescriptor(fcntl(ends[1], F_DUPFD_CLOEXEC, 0));
    return result;
  }

  static int32_t fork(FakeProcesses& fake) {
    OwnedDescriptor writeEnd = std::move(fake.newestWriteEnd_);
    if (std::exchange(fake.failFork, false)) {
      fake.log_.add("fork -1");
      errno = EAGAIN;
      return -1;
    }
    const int32_t pid = fake.nextPid_++;
    fake.children_[pid].writeEnd = std::move(writeEnd);
    fake.log_.add("fork " + std::to_string(pid));
    return pid;
  }

  static int32_t waitpid(FakeProcesses& fake, int32_t pid, int* status, int options) {
    fake.log_.add("waitpid " + std::to_string(pid) +
                  (options == 0 ? "" : " options " + std::to_string(options)));
    *status = fake.children_.at(pid).waitStatus;
    return pid;
  }

  static int kill(FakeProcesses& fake, int32_t pid, int signal) {
    fake.log_.add("kill " + std::to_string(pid) + " " + std::to_string(signal));
    return 0;
  }

  static int connect(FakeProcesses& fake, int sock, const std::string& path) {
    auto& monitor = fake.monitors_[path];
    ++monitor.attempts;
    if (monitor.refusals != 0) {
      if (monitor.refusals > 0) --monitor.refusals;
      errno = ENOENT;
      return -1;
    }
    monitor.peers.push_back(std::make_unique<QmpPeer>());
    const OwnedDescriptor end(monitor.peers.back()->takeSessionEnd());
    const int flags = fcntl(sock, F_GETFD);
    dup3(end, sock, flags & FD_CLOEXEC ? O_CLOEXEC : 0);
    fake.log_.add("connect " + path);
    return 0;
  }

  static void usleep(FakeProcesses& fake, uint64_t microseconds) {
    fake.pauses.push_back(microseconds);
    if (const auto clock = rt::ptrCast<rt::fakes::ManualClock>(rt::activityManager().clock()))
      clock->nowIs(clock->now() + rt::Seconds(static_cast<double>(microseconds) * 1e-6));
    if (fake.onPause) fake.onPause();
  }

  static int unlink(FakeProcesses& fake, const std::string& path) {
    if (fake.files.erase(path) == 0) {
      errno = ENOENT;
      return -1;
    }
    fake.log_.add("unlink " + path);
    return 0;
  }
};

}  // namespace Vm::fakes

// The linker sends calls of NAME to __wrap_NAME; __real_NAME is the system's own.
using Vm::fakes::FakeProcesses;
using Vm::fakes::SystemCalls;

extern "C" {

int __real_pipe(int ends[2]);
pid_t __real_fork();
pid_t __real_waitpid(pid_t pid, int* status, int options);
int __real_kill(pid_t pid, int signal);
void* __real_calloc(size_t count, size_t size);
int __real_socket(int domain, int type, int protocol);
int __real_connect(int sock, const sockaddr* address, socklen_t length);
int __real_usleep(useconds_t microseconds);
int __real_unlink(const char* path);

int __wrap_pipe(int ends[2]) {
  auto* const fake = FakeProcesses::current();
  return fake ? SystemCalls::pipe(*fake, reinterpret_cast<int(&)[2]>(*ends)) : __real_pipe(ends);
}

pid_t __wrap_fork() {
  auto* const fake = FakeProcesses::current();
  return fake ? SystemCalls::fork(*fake) : __real_fork();
}

pid_t __wrap_waitpid(pid_t pid, int* status, int options) {
  auto* const fake = FakeProcesses::current();
  return fake ? SystemCalls::waitpid(*fake, pid, status, options)
              : __real_waitpid(pid, status, options);
}

int __wrap_kill(pid_t pid, int signal) {
  auto* const fake = FakeProcesses::current();
  return fake ? SystemCalls::kill(*fake, pid, signal) : __real_kill(pid, signal);
}

void* __wrap_calloc(size_t count, size_t size) {
  auto* const fake = FakeProcesses::current();
  if (fake && std::exchange(fake->failCalloc, false)) return nullptr;
  return __real_calloc(count, size);
}

int __wrap_socket(int domain, int type, int protocol) {
  auto* const kernel = Vm::fakes::FakeKernel::current();
  if (kernel && domain == AF_PACKET && type == SOCK_DGRAM && protocol == 0)
    return kernel->packetSocket();
  auto* const fake = FakeProcesses::current();
  if (fake && domain == AF_UNIX && fake->failSocket) {
    errno = std::exchange(fake->failSocket, 0);
    return -1;
  }
  return __real_socket(domain, type, protocol);
}

int __wrap_connect(int sock, const sockaddr* address, socklen_t length) {
  auto* const fake = FakeProcesses::current();
  if (!fake || address->sa_family != AF_UNIX) return __real_connect(sock, address, length);
  if (length > sizeof(sockaddr_un)) {
    errno = EINVAL;
    return -1;
  }
  const auto* const path = reinterpret_cast<const sockaddr_un*>(address)->sun_path;
  return SystemCalls::connect(*fake, sock, std::string(path, length - sizeof(sa_family_t)));
}

int __wrap_usleep(useconds_t microseconds) {
  auto* const fake = FakeProcesses::current();
  if (!fake) return __real_usleep(microseconds);
  SystemCalls::usleep(*fake, microseconds);
  return 0;
}

int __wrap_unlink(const char* path) {
  auto* const fake = FakeProcesses::current();
  return fake ? SystemCalls::unlink(*fake, path) : __real_unlink(path);
}

}  // extern "C"
