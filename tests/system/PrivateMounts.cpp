#include "tests/system/PrivateMounts.h"

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <system_error>

#include "runtime/base/Check.h"

namespace Vm::fakes {

namespace {

namespace fs = std::filesystem;

void must(int answer, const char* what) {
  if (answer == 0) return;
  std::fprintf(stderr, "%s: %s\n", what, std::strerror(errno));
  std::exit(1);
}

void mountMemory(const char* path) { must(mount("tmpfs", path, "tmpfs", 0, "mode=755"), path); }

// A directory in memory over /usr/bin, with a link to everything that was there.
void hideUsrBin() {
  const fs::path place = "/usr/bin";
  const fs::path there = "/var/run/.usr-bin";
  fs::create_directory(there);
  must(mount(place.c_str(), there.c_str(), nullptr, MS_BIND, nullptr), "bind /usr/bin");
  std::map<fs::path, fs::path> links;
  for (const auto& entry : fs::directory_iterator(place)) {
    // What is a link itself may lead anywhere, and by a path that holds in its place only.
    std::error_code error;
    const fs::path target = fs::canonical(entry.path(), error);
    if (error) continue;
    links[entry.path()] = target.parent_path() == place ? there / target.filename() : target;
  }
  mountMemory(place.c_str());
  for (const auto& [link, target] : links) fs::create_symlink(target, link);
}

}  // namespace

std::string enterPrivateMounts(const std::string& qemu) {
  if (geteuid() != 0) return "root, for a mount namespace of its own";
  if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    return "the right to make a mount namespace of its own";
  mountMemory("/var/run");
  hideUsrBin();
  fs::remove(qemuPath);
  if (!qemu.empty()) fs::copy_file(qemu, qemuPath);
  return {};
}

int leaveOut(const char* program, const std::string& needs) {
  std::printf("%s is left out: it needs %s\n", program, needs.c_str());
  return std::getenv("CI") || std::getenv("VMAGENT_REQUIRE_ALL") ? 1 : 0;
}

void signalProcess(pid_t process, int signal) {
  rt::check(process > 1, "one process is signalled");
  kill(process, signal);
}

}  // namespace Vm::fakes
