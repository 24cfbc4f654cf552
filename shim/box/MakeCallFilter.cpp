// Writes, when the shim is built, the filter of system calls that it gives its QEMU, as C++ on
// standard output. So no shim needs the library, or the time to make it.
#include <linux/filter.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace {

// Each by a name that the library knows, or it is left out: older libraries know fewer, and what is
// newer than they are needs a right that QEMU has not.
constexpr const char* forbidden[] = {
    // The box's walls.
    "mount", "umount2", "pivot_root", "chroot", "fsopen", "fsconfig", "fsmount", "fspick",
    "move_mount", "open_tree", "mount_setattr", "unshare", "setns", "swapon", "swapoff", "mknod",
    "mknodat", "open_by_handle_at", "name_to_handle_at",
    // Other processes.
    "ptrace", "process_vm_readv", "process_vm_writev", "process_madvise", "process_mrelease",
    "pidfd_open", "pidfd_getfd", "pidfd_send_signal", "kcmp", "migrate_pages", "move_pages",
    // Users and rights.
    "setuid", "setgid", "setreuid", "setregid", "setresuid", "setresgid", "setgroups", "capset",
    "setfsuid", "setfsgid",
    // The kernel, and what of it has had holes most often.
    "bpf", "perf_event_open", "userfaultfd", "keyctl", "add_key", "request_key", "init_module",
    "finit_module", "delete_module", "kexec_load", "kexec_file_load", "fanotify_init",
    "lookup_dcookie", "quotactl", "quotactl_fd", "acct", "syslog", "reboot", "personality",
    // The machine.
    "settimeofday", "clock_settime", "clock_adjtime", "adjtimex", "sethostname", "setdomainname",
    "iopl", "ioperm", "modify_ldt", "vhangup",
    // A viewer's connection is of the machine's network: undone and made anew, it would lead
    // anywhere there, or listen.
    "connect", "bind", "listen", "accept", "accept4",
    // Another program; by its path QEMU's own filter forbids it, for it must be run once.
    "execveat"};

// Calls that are looked for, and for which there is another way where they are not there.
constexpr const char* missing[] = {"clone3", "io_uring_setup", "io_uring_enter",
                                   "io_uring_register"};

constexpr unsigned namespaces[] = {CLONE_NEWNS,  CLONE_NEWNET,  CLONE_NEWIPC,   CLONE_NEWUTS,
                                   CLONE_NEWPID, CLONE_NEWUSER, CLONE_NEWCGROUP};

void require(bool done, const char* what) {
  if (done) return;
  std::fprintf(stderr, "the filter of system calls cannot be made: %s\n", what);
  std::exit(1);
}

void forbid(scmp_filter_ctx filter, const char* call, int error) {
  const int number = seccomp_syscall_resolve_name(call);
  if (number < 0) return;
  require(seccomp_rule_add(filter, SCMP_ACT_ERRNO(static_cast<unsigned>(error)), number, 0) == 0,
          call);
}

// With that value of an argument, in the bits of the mask.
void forbidWith(scmp_filter_ctx filter, const char* call, scmp_arg_cmp argument, int error) {
  require(seccomp_rule_add(filter, SCMP_ACT_ERRNO(static_cast<unsigned>(error)),
                           seccomp_syscall_resolve_name(call), 1, argument) == 0,
          call);
}

void addRules(scmp_filter_ctx filter) {
  for (const char* const call : forbidden) forbid(filter, call, EPERM);
  for (const char* const call : missing) forbid(filter, call, ENOSYS);
  for (const unsigned each : namespaces)
    forbidWith(filter, "clone", {0, SCMP_CMP_MASKED_EQ, each, each}, EPERM);
  // Of an int the kernel looks at its own bits only, whatever stands above them.
  constexpr unsigned anInt = ~0U;
  // It ends with its shim.
  forbidWith(filter, "prctl", {0, SCMP_CMP_MASKED_EQ, anInt, PR_SET_PDEATHSIG}, EPERM);
  // Its network is what it is given; of some families there is one for all.
  forbidWith(filter, "socket", {0, SCMP_CMP_NE, AF_UNIX, 0}, EAFNOSUPPORT);
  // What a socket can tell and change of its network, for those that it is handed are of the
  // machine's. Its card's address is the host's to choose, too, though it has the card's device.
  constexpr unsigned ofSockets = 0xffffff00U;
  static_assert((SIOCSIFHWADDR & ofSockets) == 0x8900 && (SIOCGIFNAME & ofSockets) == 0x8900);
  forbidWith(filter, "ioctl", {1, SCMP_CMP_MASKED_EQ, ofSockets, 0x8900}, EPERM);
  forbidWith(filter, "ioctl", {1, SCMP_CMP_MASKED_EQ, anInt, TIOCSTI}, EPERM);
}

void print(int file) {
  std::puts(
      "#include \"shim/box/CallFilter.h\"\n\n"
      "namespace shim {\n\n"
      "static const sock_filter filter[] = {");
  require(lseek(file, 0, SEEK_SET) == 0, "lseek");
  sock_filter step{};
  while (read(file, &step, sizeof step) == sizeof step)
    std::printf("    {%#x, %u, %u, %#x},\n", step.code, step.jt, step.jf, step.k);
  std::puts(
      "};\n\n"
      "std::span<const sock_filter> callFilter() { return filter; }\n\n"
      "}  // namespace shim");
}

}  // namespace

int main() {
  void* const filter = seccomp_init(SCMP_ACT_ALLOW);
  require(filter != nullptr, "no memory");
  // As a program of another architecture it would go by other numbers.
  require(seccomp_attr_set(filter, SCMP_FLTATR_ACT_BADARCH, SCMP_ACT_KILL_PROCESS) == 0, "arch");
  // A few comparisons for each call instead of one for each that is forbidden.
  (void)seccomp_attr_set(filter, SCMP_FLTATR_CTL_OPTIMIZE, 2);
  addRules(filter);
  const int file = memfd_create("filter", 0);
  require(file >= 0 && seccomp_export_bpf(filter, file) == 0, "export");
  seccomp_release(filter);
  print(file);
  return 0;
}
