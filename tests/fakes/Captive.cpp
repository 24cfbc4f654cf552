// Stands in QEMU's place as one that its guest has taken over: tries what such a one would, and
// says what came of it. Plain system calls only, for it has none of QEMU's own restraint.
//
// For each attack it prints one line, "attack NAME: ANSWER"; the answer is the name of an error, or
// "done". Arguments, between others, name whom it reaches for: "--victim=PID", another guest's
// QEMU,
// "--image=PATH", that one's disk, "--socket=NAME", an abstract one that listens outside. It ends
// with status 0 when all was tried.
//
// What would do harm if it were allowed is tried with what the kernel refuses later: EFAULT or
// EINVAL then stands for "allowed".
#include <fcntl.h>
#include <grp.h>
#include <linux/capability.h>
#include <linux/reboot.h>
#include <mqueue.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

namespace {

// An address that is none of ours.
void* const nowhere = reinterpret_cast<void*>(8);
constexpr int monitorDescriptor = 3;
constexpr int lockDescriptor = 5;
constexpr int imageDescriptor = 6;
constexpr long badNumber = 0x7fffff;

void say(const char* attack, long result) {
  std::printf("attack %s: %s\n", attack, result < 0 ? strerrorname_np(errno) : "done");
  std::fflush(stdout);
}

std::string valueOf(const std::vector<std::string>& words, const std::string& name) {
  for (const std::string& word : words)
    if (word.rfind("--" + name + "=", 0) == 0) return word.substr(name.size() + 3);
  return {};
}

long opened(const char* path, int flags) {
  const int file = open(path, flags | O_CLOEXEC, 0600);
  if (file >= 0) close(file);
  return file;
}

long socketOf(int family, int type) {
  const int made = socket(family, type, 0);
  if (made >= 0) close(made);
  return made;
}

void tryFiles(const std::string& image) {
  for (const char* path : {"/etc/passwd", "/home", "/root", "/var", "/run", "/proc/self/status",
                           "/sys", "/tmp", "/dev/mem", "/dev/net/tun", "/dev/pts/0", "/dev/fuse",
                           "/usr/bin/sh", "/proc/sys/kernel/core_pattern"})
    say((std::string("open-") + (path + 1)).c_str(), opened(path, O_RDONLY));
  say("open-anothers-image", opened(image.c_str(), O_RDWR));
  say("open-own-image-by-descriptor",
      opened(("/proc/self/fd/" + std::to_string(imageDescriptor)).c_str(), O_RDWR));
  say("make-file", opened("/file", O_WRONLY | O_CREAT));
  say("make-file-in-dev", opened("/dev/file", O_WRONLY | O_CREAT));
  say("make-file-among-libraries", opened("/usr/lib/captive", O_WRONLY | O_CREAT));
  say("make-device", mknod("/dev/sda", S_IFBLK | 0600, makedev(8, 0)));
  say("remove-library", unlink("/usr/lib/os-release"));
  say("leave-by-dots", opened("../../../../etc/passwd", O_RDONLY));
  say("open-by-handle", syscall(SYS_open_by_handle_at, AT_FDCWD, nowhere, O_RDONLY));
  say("write-to-lock", write(lockDescriptor, "x", 1));
  say("fill-lock", ftruncate(lockDescriptor, 1 << 20));
}

void tryNetwork(const std::string& listener) {
  say("socket-inet", socketOf(AF_INET, SOCK_STREAM));
  say("socket-inet6", socketOf(AF_INET6, SOCK_DGRAM));
  say("socket-raw", socketOf(AF_INET, SOCK_RAW));
  say("socket-netlink", socketOf(AF_NETLINK, SOCK_RAW));
  say("socket-packet", socketOf(AF_PACKET, SOCK_RAW));
  say("socket-vsock", socketOf(AF_VSOCK, SOCK_STREAM));
  say("socket-alg", socketOf(AF_ALG, SOCK_SEQPACKET));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path + 1, listener.data(), listener.size());
  const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const auto size = static_cast<socklen_t>(sizeof(sa_family_t) + 1 + listener.size());
  say("connect-abstract", connect(client, reinterpret_cast<sockaddr*>(&address), size));
  std::strcpy(address.sun_path, "/run/vmagent/vm/guest1/shim.sock");
  say("connect-to-a-shim", connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address));
  std::array<char, 64> request{};
  say("change-a-cards-address", ioctl(client, SIOCSIFHWADDR, request.data()));
  say("type-at-a-terminal", ioctl(client, TIOCSTI, request.data()));
  close(client);
  // What it is handed was made where the machine's network is.
  sockaddr nobody{};
  nobody.sa_family = AF_UNSPEC;
  say("undo-a-connection", connect(monitorDescriptor, &nobody, sizeof nobody));
  say("name-a-connection", bind(monitorDescriptor, reinterpret_cast<sockaddr*>(&address), size));
  say("listen-at-a-connection", listen(monitorDescriptor, 1));
  say("accept-at-a-connection", accept(monitorDescriptor, nullptr, nullptr));
  say("ask-for-an-interface", ioctl(monitorDescriptor, SIOCGIFNAME, request.data()));
}

// Of one that has our user, too, if there were any.
void tryProcess(const std::string& whose, pid_t process) {
  const auto sayOf = [&](const char* what, long result) { say((what + whose).c_str(), result); };
  sayOf("signal-", kill(process, SIGURG));  // which does nothing to who has not asked for it
  sayOf("trace-", ptrace(PTRACE_SEIZE, process, nullptr, nullptr));
  char byte = 0;
  const iovec own{&byte, 1};
  const iovec others{&byte, 1};
  sayOf("read-memory-of-", process_vm_readv(process, &own, 1, &others, 1, 0));
  sayOf("write-memory-of-", process_vm_writev(process, &own, 1, &others, 1, 0));
  sayOf("hold-", syscall(SYS_pidfd_open, process, 0));
  sayOf("slow-down-", setpriority(PRIO_PROCESS, static_cast<id_t>(process), 19));
  sayOf("limit-", prlimit(process, RLIMIT_NOFILE, nullptr, nullptr) == 0
                      ? prlimit(process, RLIMIT_NOFILE, reinterpret_cast<rlimit*>(nowhere), nullptr)
                      : -1);
}

void tryRights() {
  say("become-root", setresuid(0, 0, 0));
  say("become-another", setresgid(1, 1, 1));
  const gid_t group = 0;
  say("join-a-group", setgroups(1, &group));
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  say("have-a-capability", syscall(SYS_capset, &header, nowhere));
  say("outlive-the-shim", prctl(PR_SET_PDEATHSIG, 0));
  say("outlive-the-shim-by-a-trick", syscall(SYS_prctl, 0x100000000L + PR_SET_PDEATHSIG, 0));
  say("be-in-real-time", [] {
    sched_param first{};
    first.sched_priority = 1;
    return sched_setscheduler(0, SCHED_FIFO, &first);
  }());
  say("be-first", setpriority(PRIO_PROCESS, 0, -5));
  rlimit more{};
  getrlimit(RLIMIT_NOFILE, &more);
  ++more.rlim_max;
  say("have-more-descriptors", setrlimit(RLIMIT_NOFILE, &more));
  char* const none[] = {nullptr};
  say("run-a-shell", execve("/bin/sh", none, none));
  say("run-what-is-open", syscall(SYS_execveat, imageDescriptor, "", none, none, AT_EMPTY_PATH));
}

void tryNamespaces() {
  say("unshare-user", unshare(CLONE_NEWUSER));
  say("unshare-mounts", unshare(CLONE_NEWNS));
  say("clone-user", [] {
    const long child =
        syscall(SYS_clone, CLONE_NEWUSER | SIGCHLD, nullptr, nullptr, nullptr, nullptr);
    if (child == 0) _exit(0);
    return child;
  }());
  say("clone3", syscall(SYS_clone3, nowhere, 0));
  say("setns", setns(imageDescriptor, 0));
  say("chroot", chroot("/"));
  say("pivot-root", syscall(SYS_pivot_root, ".", "."));
  say("mount", mount("tmpfs", "/dev", "tmpfs", 0, nullptr));
  say("remount", mount(nullptr, "/usr/lib", nullptr, MS_REMOUNT | MS_BIND, nullptr));
  say("unmount", umount2("/usr/lib", MNT_DETACH));
  say("fsopen", syscall(SYS_fsopen, "tmpfs", 0));
  say("open-tree", syscall(SYS_open_tree, AT_FDCWD, "/", 1));
}

void tryKernel() {
  say("bpf", syscall(SYS_bpf, 0, nowhere, 0));
  say("perf", syscall(SYS_perf_event_open, nowhere, 0, -1, -1, 0));
  say("userfaultfd", syscall(SYS_userfaultfd, 0));
  say("io-uring", syscall(SYS_io_uring_setup, 1, nowhere));
  say("keys", syscall(SYS_keyctl, 0, 0, 0, 0, 0));
  say("add-key", syscall(SYS_add_key, nowhere, nowhere, nullptr, 0, 0));
  say("module", syscall(SYS_init_module, nowhere, 0, nowhere));
  say("kexec", syscall(SYS_kexec_load, 0, badNumber, nowhere, 0));
  say("fanotify", syscall(SYS_fanotify_init, badNumber, 0));
  say("quota", syscall(SYS_quotactl, badNumber, nowhere, 0, nowhere));
  say("swap", syscall(SYS_swapon, nowhere, 0));
  say("log", syscall(SYS_syslog, badNumber, nullptr, 0));
  say("accounting", syscall(SYS_acct, nowhere));
  say("reboot", syscall(SYS_reboot, badNumber, 0, 0, nullptr));
  say("clock", syscall(SYS_clock_settime, CLOCK_REALTIME, nowhere));
  say("name", syscall(SYS_sethostname, nowhere, 1));
  say("personality", syscall(SYS_personality, 0xffffffff));
}

// As many as there can be, and one more.
template <class Make, class Unmake>
long untilRefused(int bound, const Make& make, const Unmake& unmake) {
  std::vector<int> made;
  long last = 0;
  int error = 0;
  while (last >= 0 && static_cast<int>(made.size()) < bound) {
    last = make();
    error = errno;
    if (last >= 0) made.push_back(static_cast<int>(last));
  }
  unmake(made);
  errno = error;
  return last;
}

void tryResources() {
  constexpr int bound = 4096;
  int ends[2];
  if (pipe2(ends, 0) != 0) return;
  const auto child = [&]() -> long {
    const pid_t pid = fork();
    if (pid != 0) return pid;
    close(ends[1]);
    char byte = 0;
    _exit(read(ends[0], &byte, 1) == 0 ? 0 : 1);  // until there is nobody at the other end
  };
  const auto reap = [&](const std::vector<int>& children) {
    close(ends[1]);
    for (const int pid : children) waitpid(pid, nullptr, 0);
  };
  say("fork-bomb", untilRefused(bound, child, reap));
  const auto closeAll = [](const std::vector<int>& numbers) {
    for (const int number : numbers) close(number);
  };
  say("descriptors", untilRefused(
                         bound, [&] { return dup(ends[0]); }, closeAll));
  constexpr size_t mebibyte = 1 << 20;
  void* const memory =
      mmap(nullptr, mebibyte, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  say("lock-memory", mlock(memory, mebibyte));
  say("message-queue", mq_open("/queue", O_CREAT | O_RDWR, 0600, nullptr));
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv, argv + argc);
  const std::string victim = valueOf(words, "victim");
  tryFiles(valueOf(words, "image"));
  tryNetwork(valueOf(words, "socket"));
  tryProcess("shim", getppid());
  if (const int pid = std::atoi(victim.c_str()); pid > 1) tryProcess("another", pid);
  tryRights();
  tryNamespaces();
  tryKernel();
  tryResources();
  return 0;
}
