// A folder with a run directory, and shims of one VM in it.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "runtime/base/fakes/TestFolder.h"
#include "shim/fakes/ShimProcess.h"
#include "shim/keep/ListeningSocket.h"

namespace shim::fakes {

inline constexpr char realQemu[] = "/usr/bin/qemu-system-x86_64";
inline constexpr char queryStatus[] = R"({ "execute": "query-status","id": "status" })";

inline int exited(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }
inline int signaled(int status) { return WIFSIGNALED(status) ? WTERMSIG(status) : -1; }

// A client of a socket of the shim's, which waits for what it is to hear.
class LineClient {
 public:
  explicit LineClient(const std::string& path) : connection_(connectionTo(path)) {}

  bool isConnected() const { return static_cast<bool>(connection_); }
  const rt::Descriptor& socket() const { return connection_; }
  void send(const std::string& bytes) const {
    for (size_t at = 0; at < bytes.size();) {
      const ssize_t count = write(connection_.number(), bytes.data() + at, bytes.size() - at);
      if (count <= 0) return;
      at += static_cast<size_t>(count);
    }
  }
  // The next line, without its end; empty when none comes, or the stream ends.
  std::string line() {
    while (unread_.find('\n') == std::string::npos) {
      char bytes[4096];
      if (!connection_ || !becomesReadable(connection_.number())) return {};
      const ssize_t count = read(connection_.number(), bytes, sizeof bytes);
      if (count <= 0) return {};
      unread_.append(bytes, static_cast<size_t>(count));
    }
    const size_t end = unread_.find('\n');
    std::string first = unread_.substr(0, end);
    unread_.erase(0, end + 1);
    return first;
  }
  std::string ask(const std::string& request) {
    send(request + "\n");
    return line();
  }

 private:
  rt::Descriptor connection_;
  std::string unread_;
};

class ShimWorld : public testing::Test {
 protected:
  // A disk of its own: QEMU locks it.
  ShimWorld() { std::filesystem::copy_file(BOOTSECTOR, folder / "disk.img"); }

  std::vector<std::string> arguments(int cards = 0, const std::string& disk = "disk.img") const {
    return agentArguments("guest0", monitor(), folder / disk, cards);
  }
  std::map<std::string, std::string> environment(const std::string& qemu = realQemu) const {
    std::map<std::string, std::string> all = {
        {"VMAGENT_QEMU", qemu}, {"VMAGENT_RUN_DIR", folder.path()}, {"VMAGENT_ACCEL", "tcg"}};
    if (qemu != realQemu) all["VMAGENT_QEMU_READS"] = "/usr/bin";  // what scripts are made of
    return all;
  }
  std::unique_ptr<ShimProcess> start(const std::string& qemu = realQemu, int cards = 0,
                                     const std::string& disk = "disk.img") const {
    return std::make_unique<ShimProcess>(VMAGENT_SHIM, arguments(cards, disk), environment(qemu));
  }
  // A program that runs in place of QEMU, and sees as little.
  std::string script(const std::string& text, const std::string& name = "qemu.sh") const {
    std::string path = folder / name;
    std::ofstream(path) << "#!/bin/sh\n" << text << "\n";
    std::filesystem::permissions(path, std::filesystem::perms(0755));
    return path;
  }
  std::string monitor() const { return folder / "guest0.monitor"; }
  std::string file(const std::string& name) const { return folder / ("vm/guest0/" + name); }
  static rt::Descriptor openTerminal(const std::string& path) {
    return rt::Descriptor(open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  }

  const rt::fakes::TestFolder folder;
};

}  // namespace shim::fakes
