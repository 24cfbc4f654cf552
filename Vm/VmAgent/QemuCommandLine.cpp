#include "Vm/VmAgent/QemuCommandLine.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <vector>

#include "Vm/VmAgent/VmConfigSm.h"
#include "runtime/base/Check.h"
#include "runtime/base/Format.h"
#include "runtime/base/Trace.h"

namespace Vm {

namespace {

// Byte 1 of the volume descriptor in sector 16.
constexpr long isoMagicOffset = 32769;
constexpr std::string_view isoMagic = "CD001";

constexpr uint32_t firstVncPort = 5900;
constexpr uint32_t lastVncDisplay = 10;

rt::String displayArgument(uint32_t vncPort) {
  const uint32_t display = vncPort - firstVncPort;  // a lower port wraps to a large number
  return display > lastVncDisplay ? "-nographic " : rt::format("-vnc 0.0.0.0:%u ", display);
}

// Waits for nobody: a pipe may have taken the place of the file that was looked at.
std::FILE* openToRead(const std::string& path) {
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  std::FILE* const file = descriptor < 0 ? nullptr : fdopen(descriptor, "r");
  if (!file && descriptor >= 0) close(descriptor);
  return file;
}

}  // namespace

rt::String monitorPath(const VmConfig::PtrConst& vmConfig) {
  return rt::format("/var/run/%s.monitor", vmConfig->name().charPtr());
}

int diskIsCDROM(const std::string& path) {
  VM_TRACE(8) << "int diskIsCDROM(std::string)"
              << " image path " << path;
  std::FILE* const file = openToRead(path);
  if (!file) {
    VM_TRACE(1) << "diskIsCDROM"
                << " FAIL: cannot open file " << path;
    return -1;
  }
  char bytes[isoMagic.size()];
  if (std::fseek(file, isoMagicOffset, SEEK_SET) != 0 ||
      std::fread(bytes, 1, sizeof bytes, file) < sizeof bytes) {
    VM_TRACE(1) << "diskIsCDROM"
                << " FAIL: cannot read from file " << path;
    return -1;  // the file stays open
  }
  std::fclose(file);
  return std::string_view(bytes, sizeof bytes) == isoMagic ? 0 : 1;
}

void VmConfigSm::doComposeQemuCommandLine() {
  rt::check(vmConfig() != nullptr, "vmConfig()");
  VM_TRACE(8) << "void Vm::VmConfigSm::doComposeQemuCommandLine()"
              << " for " << vmConfig()->name();
  qemuCommandLineIs({});
  rt::String line;
  line += "/usr/bin/qemu-system-x86_64 ";
  line += "-S ";
  line += "-M pc ";
  line += "-enable-kvm -smp 1 -nodefaults -nodefconfig -no-user-config -rtc base=utc ";
  line += "-chardev pty,id=serial0 -device isa-serial,chardev=serial0 ";
  line += rt::format("-m %d ", static_cast<int>(vmConfig()->memory()));
  line += rt::format("-name %s ", vmConfig()->name().charPtr());
  line += rt::format(
      "-chardev socket,id=monitor,path=%s,server,nowait -mon chardev=monitor,mode=control ",
      monitorPath(vmConfig()).charPtr());
  line += "-usb -device usb-tablet,id=input0 ";
  line += displayArgument(vmConfig()->vncPort());
  line += "-device cirrus-vga ";
  line += "-boot order=dc ";

  const int probe = diskIsCDROM(vmConfig()->diskImage().str());
  if (probe < 0) return;
  line += rt::format("-drive file=%s,if=none,id=ide-drive0 ", vmConfig()->diskImage().charPtr());
  line += rt::format("-device ide-%s,drive=ide-drive0,bus=ide.0,unit=0 ", probe == 0 ? "cd" : "hd");

  int n = 0;
  for (const auto& [key, card] : vmConfig()->vnicConfigs()) {
    line += rt::format("-device %s,id=net%d,mac=%s ", card->model().charPtr(), n,
                       card->macAddr().text().charPtr());
    vnicIs(rt::format("net%d", n), rt::format("hostnet%d", n), card->macAddr(), card->intfName(),
           Vnic::noFd);
    ++n;
  }
  qemuCommandLineIs(line);
  VM_TRACE(8) << "doComposeQemuCommandLine"
              << " qemu cmd line: " << line;
}

void* VmConfigSm::allocArgvFromQemuCommandline() const {
  std::istringstream line(qemuCommandLine().str());
  std::vector<std::string> words;
  for (std::string word; line >> word;) words.push_back(word);
  if (words.empty()) return nullptr;
  auto** const argv = static_cast<char**>(std::calloc(words.size() + 1, sizeof(char*)));
  if (!argv) {
    VM_TRACE(1) << "allocArgvFromQemuCommandline"
                << " FAIL: cannot alloc ";
    rt::check(false, "0");
  }
  for (size_t i = 0; i < words.size(); ++i) argv[i] = strdup(words[i].c_str());
  return argv;
}

void VmConfigSm::freeArgv(void* argv) const {
  if (!argv) return;
  for (auto** word = static_cast<char**>(argv); *word; ++word) std::free(*word);
  std::free(argv);
}

}  // namespace Vm
