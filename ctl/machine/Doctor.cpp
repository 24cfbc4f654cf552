#include "ctl/machine/Doctor.h"

#include <linux/capability.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <set>
#include <utility>

#include "guest/GuestUsers.h"
#include "guest/VmFiles.h"
#include "runtime/base/Text.h"

namespace ctl {

namespace {

using Access = Machine::Access;
using KernelVersion = std::pair<uint32_t, uint32_t>;

constexpr const char* qemu = guest::qemuPath;
constexpr uint32_t oldestQemu = 7;
constexpr KernelVersion oldestKernel{5, 9};  // for close_range()
constexpr uint64_t mebibyte = 1024 * 1024;
constexpr int64_t year2020 = 1577836800;  // seconds since 1970

Finding ok(const char* what, const rt::String& finding) { return {Health::ok, what, finding, {}}; }
Finding warning(const char* what, const rt::String& finding, const rt::String& mend) {
  return {Health::warning, what, finding, mend};
}
Finding failed(const char* what, const rt::String& finding, const rt::String& mend) {
  return {Health::failed, what, finding, mend};
}

std::string_view lineOf(std::string_view& text) {
  const size_t end = std::min(text.find('\n'), text.size());
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return line;
}

std::vector<std::string_view> wordsOf(std::string_view line) {
  constexpr std::string_view blanks = " \t\n";
  std::vector<std::string_view> words;
  while (true) {
    const size_t begin = line.find_first_not_of(blanks);
    if (begin == std::string_view::npos) return words;
    line.remove_prefix(begin);
    const size_t end = std::min(line.find_first_of(blanks), line.size());
    words.push_back(line.substr(0, end));
    line.remove_prefix(end);
  }
}

bool hasWord(std::string_view text, std::string_view word) {
  const std::vector<std::string_view> words = wordsOf(text);
  return std::find(words.begin(), words.end(), word) != words.end();
}

// "vmx", "svm", or nothing.
rt::String virtualizationOf(const Machine& machine) {
  const rt::String cpus = machine.text("/proc/cpuinfo").value_or("");
  std::string_view rest = cpus;
  while (!rest.empty()) {
    const std::string_view line = lineOf(rest);
    if (line.substr(0, 5) != "flags") continue;
    if (hasWord(line, "vmx")) return "vmx";
    return hasWord(line, "svm") ? "svm" : "";
  }
  return {};
}

// "7.2" of "QEMU emulator version 7.2.22 (Debian ...)".
rt::String versionOf(std::string_view text) {
  constexpr std::string_view mark = "version ";
  const size_t at = text.find(mark);
  if (at == std::string_view::npos) return {};
  text.remove_prefix(at + mark.size());
  return text.substr(0, text.find_first_not_of("0123456789."));
}

// {6, 1} of "6.1.0-44-amd64".
std::optional<KernelVersion> kernelVersionOf(std::string_view release) {
  const size_t dot = release.find('.');
  if (dot == std::string_view::npos) return std::nullopt;
  const std::string_view rest = release.substr(dot + 1);
  const auto major = rt::fromText<uint32_t>(release.substr(0, dot));
  const auto minor = rt::fromText<uint32_t>(rest.substr(0, rest.find_first_not_of("0123456789")));
  if (!major || !minor) return std::nullopt;
  return KernelVersion{*major, *minor};
}

// Of the file system that is mounted there last.
rt::String fileSystemAt(std::string_view mounts, std::string_view place) {
  rt::String found;
  while (!mounts.empty()) {
    const std::vector<std::string_view> words = wordsOf(lineOf(mounts));
    if (words.size() > 2 && words[1] == place) found = words[2];
  }
  return found;
}

// Which of them root may have here, a bit each; nothing where that is not told.
std::optional<uint64_t> capabilitiesOf(std::string_view status) {
  constexpr std::string_view mark = "\nCapBnd:\t";
  constexpr int hexadecimal = 16;
  const size_t at = status.find(mark);
  if (at == std::string_view::npos) return std::nullopt;
  status.remove_prefix(at + mark.size());
  uint64_t bits = 0;
  const auto [end, error] =
      std::from_chars(status.data(), status.data() + status.size(), bits, hexadecimal);
  return error == std::errc() ? std::optional(bits) : std::nullopt;
}

// Those that a shim cannot start a guest without.
constexpr std::pair<int, const char*> boxRights[] = {
    {CAP_SYS_ADMIN, "SYS_ADMIN"}, {CAP_MKNOD, "MKNOD"},     {CAP_SETUID, "SETUID"},
    {CAP_SETGID, "SETGID"},       {CAP_SETPCAP, "SETPCAP"}, {CAP_KILL, "KILL"}};

bool isDenied(int error) { return error == EACCES || error == EPERM; }

}  // namespace

Finding examineKvm(const Machine& machine) {
  constexpr const char* what = "KVM";
  const rt::String flag = virtualizationOf(machine);
  const int error = machine.openError("/dev/kvm");
  if (error == 0 && flag.empty())
    return warning(what,
                   "/dev/kvm opens, but the processor tells neither vmx nor svm: guests will be "
                   "emulated, and slow",
                   "switch virtualization on in the machine's firmware, or have vmagentd use KVM "
                   "all the same: --accel kvm");
  if (error == 0) return ok(what, "/dev/kvm opens, and the processor has " + flag);
  const rt::String finding = rt::String("/dev/kvm does not open (") + std::strerror(error) + ")";
  if (isDenied(error))
    return warning(what, finding + ": whether guests will be emulated is not known",
                   "run 'vmctl doctor' as root, as whom vmagentd opens it");
  const rt::String slow = finding + ": guests will be emulated, and slow";
  if (flag.empty())
    return warning(what, slow,
                   "the processor offers no virtualization: switch it on in the machine's firmware "
                   "or, if this is a guest itself, in its host");
  return warning(what, slow,
                 "load the kernel's module: 'modprobe kvm_" +
                     rt::String(flag == "vmx" ? "intel" : "amd") + "'");
}

Finding examineQemu(const Machine& machine) {
  constexpr const char* what = "QEMU";
  if (machine.accessError(qemu, Access::execute) != 0)
    return failed(what, rt::String("there is no program ") + qemu,
                  "install the package qemu-system-x86");
  const ProgramEnd end = machine.run({qemu, "--version"});
  std::string_view output = end.output;
  const rt::String line = lineOf(output);
  if (end.status != 0)
    return failed(what, rt::String(qemu) + " does not run" + (line.empty() ? "" : ": " + line),
                  "install the package qemu-system-x86 anew");
  const rt::String version = versionOf(line);
  const std::string_view text = version;
  const auto major = rt::fromText<uint32_t>(text.substr(0, text.find('.')));
  if (!major)
    return warning(what, rt::String(qemu) + " tells no version: " + line,
                   "make sure that it is QEMU " + rt::toText(oldestQemu) + " or newer");
  if (*major < oldestQemu)
    return failed(what, rt::String(qemu) + " is too old: version " + version,
                  "install version " + rt::toText(oldestQemu) + " or newer");
  return ok(what, rt::String(qemu) + ", version " + version);
}

Finding examineKernel(const Machine& machine) {
  constexpr const char* what = "kernel";
  const rt::String text = machine.text("/proc/sys/kernel/osrelease").value_or("");
  std::string_view rest = text;
  const rt::String release = lineOf(rest);
  const rt::String oldest = rt::format("%u.%u", oldestKernel.first, oldestKernel.second);
  const auto version = kernelVersionOf(release);
  if (!version)
    return warning(what, "it tells no version" + (release.empty() ? release : ": " + release),
                   "make sure that it is Linux " + oldest + " or newer");
  if (*version < oldestKernel)
    return failed(what, "Linux " + release + " is too old: no guest can start",
                  "run Linux " + oldest + " or newer");
  return ok(what, "Linux " + release);
}

Finding examineMacvtap(const Machine& machine) {
  constexpr const char* what = "macvtap";
  if (hasWord(machine.text("/proc/devices").value_or(""), "macvtap"))
    return ok(what, "the kernel has it");
  if (machine.run({"modprobe", "-n", "-q", "macvtap"}).status == 0)
    return ok(what, "the kernel has it as a module, and loads it when it is needed");
  return failed(what, "the kernel does not have it, so no guest can have a network card",
                "run a kernel with CONFIG_MACVTAP, or install its module");
}

Finding examineDevices(const Machine& machine) {
  constexpr const char* what = "tap nodes";
  const rt::String kind = fileSystemAt(machine.text("/proc/mounts").value_or(""), "/dev");
  if (kind == "devtmpfs") return ok(what, "the kernel makes them in /dev");
  const rt::String found = kind.empty() ? "no file system of its own" : kind;
  return warning(what, "/dev is " + found + ", where the kernel makes none",
                 "mount devtmpfs there, or let udev run, or run vmagentd in a network namespace of "
                 "its own, where it makes them itself");
}

// What the shim does with QEMU takes parts of the kernel, and rights that root may lack in a
// container.
Finding examineBox(const Machine& machine) {
  constexpr const char* what = "box";
  const rt::String cannot = "QEMU cannot be shut in, so no guest can start: ";
  for (const char* part : {"/proc/self/ns/mnt", "/proc/self/ns/net", "/proc/self/ns/ipc",
                           "/proc/self/ns/uts", "/proc/sys/kernel/seccomp/actions_avail"})
    if (machine.accessError(part, Access::exists) != 0)
      return failed(what, cannot + "the kernel has no " + part,
                    "run a kernel with CONFIG_NAMESPACES and CONFIG_SECCOMP_FILTER");
  const auto rights = capabilitiesOf(machine.text("/proc/self/status").value_or(""));
  for (const auto& [number, name] : boxRights)
    if (rights && (*rights >> number & 1U) == 0)
      return failed(what, cannot + "root lacks the capability " + name,
                    "if this is a container, give it that");
  const guest::UserRange users;
  std::set<unsigned> taken = guest::takenUsers(machine.text("/etc/passwd").value_or(""), users);
  taken.merge(guest::takenUsers(machine.text("/etc/group").value_or(""), users));
  if (!taken.empty())
    return warning(what,
                   rt::format("user or group %u, of those for guests (%s), is somebody's: it is "
                              "passed over",
                              *taken.begin(), guest::textOf(users).c_str()),
                   "name others, of nobody's, with vmagentd's option --guest-users");
  return ok(what, rt::format("QEMU can be shut in, as one of the users %s, or of --guest-users",
                             guest::textOf(users).c_str()));
}

Finding examineClock(const Machine& machine) {
  constexpr const char* what = "clock";
  if (machine.timeOfDay() >= year2020) return ok(what, "it is set");
  return warning(what, "it says that it is before 2020, so the times in logs will be wrong",
                 "set it with 'date -s', or let it be set from the network");
}

Finding examineShim(const Machine& machine) {
  constexpr const char* what = "vmagent-shim";
  const rt::String own = machine.ownDirectory();
  // Installed, in one directory, in the build's.
  for (const char* place : {"/../lib/vmagent/", "/", "/../shim/"}) {
    const rt::String path = own + place + "vmagent-shim";
    if (machine.accessError(path, Access::execute) == 0) return ok(what, "it is installed");
  }
  return failed(what, "it is not in " + own + "/../lib/vmagent",
                "install VmAgent anew: vmagentd does not start without it");
}

// Asks the daemon that was installed with us: the agent is looked for in its library path, not in
// ours.
Finding examineAgent(const Machine& machine) {
  constexpr const char* what = "agent";
  const rt::String mend = "install VmAgent anew: vmagentd does not start without it";
  const rt::String own = machine.ownDirectory();
  for (const char* place : {"/", "/../host/"}) {  // installed, in the build's
    const rt::String daemon = own + place + "vmagentd";
    if (machine.accessError(daemon, Access::execute) != 0) continue;
    const ProgramEnd end = machine.run({daemon, "--check", "--shim", "off"});
    if (end.status == 0) return ok(what, "vmagentd can load it");
    std::string_view output = end.output;
    const rt::String line = lineOf(output);
    return failed(what, daemon + " does not find all it needs" + (line.empty() ? "" : ": " + line),
                  mend);
  }
  return failed(what, "there is no program vmagentd in " + own, mend);
}

Finding examinePermissions(const Machine& machine, const Directories& directories) {
  constexpr const char* what = "permissions";
  bool isThere = true;
  for (const rt::String& path : {directories.state, directories.state + "/config.db",
                                 directories.run, directories.run + "/status.db"}) {
    const int error = machine.accessError(path, Access::use);
    if (isDenied(error))
      return failed(what, path + " cannot be read and written by you",
                    "run vmctl as root or as a member of the group vmagent: 'adduser USER "
                    "vmagent', and log in anew");
    if (error == EROFS)
      return failed(what, path + " is on a file system that is mounted read-only",
                    "mount it writable, or name another directory");
    isThere = isThere && error == 0;
  }
  return ok(what, isThere ? "you can read and write both databases"
                          : "nothing that is there yet refuses you");
}

Finding examineRunDirectory(const Machine& machine, const rt::String& directory) {
  constexpr const char* what = "run directory";
  const int error = machine.accessError(directory, Access::exists);
  if (error != 0)
    return failed(what, directory + ": " + std::strerror(error),
                  "start vmagentd, which makes it, or name the one it uses with --run-dir");
  const auto bytes = machine.freeSpace(directory);
  if (bytes && *bytes < leastRunSpace)
    return failed(what, directory + ", " + sizeText(*bytes) + " free: too little for the status",
                  "free some space there; until then the status is as it was");
  return ok(what, directory);
}

Finding examineStateDirectory(const Machine& machine, const rt::String& directory) {
  constexpr const char* what = "state directory";
  const int error = machine.accessError(directory, Access::exists);
  if (error != 0)
    return failed(what, directory + ": " + std::strerror(error),
                  "start vmagentd, which makes it, or name the one it uses with --state-dir");
  const auto bytes = machine.freeSpace(directory);
  if (!bytes) return ok(what, directory);
  const rt::String finding = directory + ", " + sizeText(*bytes) + " free";
  const rt::String mend = "free some space on its disk";
  if (*bytes < mebibyte) return failed(what, finding + ": too little to write", mend);
  if (*bytes < 16 * mebibyte) return warning(what, finding, mend);
  return ok(what, finding);
}

rt::String sizeText(uint64_t bytes) {
  constexpr const char* units[] = {"KiB", "MiB", "GiB", "TiB"};
  double size = static_cast<double>(bytes) / 1024;
  size_t unit = 0;
  while (size >= 1024 && unit + 1 < std::size(units)) {
    size /= 1024;
    ++unit;
  }
  return rt::format("%.1f %s", size, units[unit]);
}

}  // namespace ctl
