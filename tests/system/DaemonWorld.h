// A machine of our own with vmagentd on it, driven by vmctl as an operator would.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace host::fakes {

// What a program said, and how it ended.
struct Ended {
  int status = -1;  // its exit status; -N: ended by signal N
  std::string out;
  std::string err;
};

// For a program's main(): moves it to mount and network namespaces of its own, where `qemu` stands
// in QEMU's place. Without the right to do so, returns what is missing.
std::string enterDaemonWorld(const std::string& qemu);

// Runs a program to its end.
Ended run(const std::vector<std::string>& words);

// Waits until it holds, at most for `seconds`; whether it did.
bool waitUntil(const std::function<bool()>& holds, double seconds = 20);

// One machine. A VM's scripted QEMU acts by the file /var/run/NAME.script.
class DaemonWorld {
 public:
  DaemonWorld();
  DaemonWorld(const DaemonWorld&) = delete;
  ~DaemonWorld();  // ends the daemon and all guests

  // Starts the daemon and waits until it says that it is ready.
  void start(std::vector<std::string> options = {"--shim", "off"});
  // Starts it and does not wait. What it says goes to that file.
  void launch(std::vector<std::string> options = {"--shim", "off"},
              const std::string& standardError = logFile);
  // Sends it a signal and returns its exit status (-N: signal N).
  int end(int signal);
  pid_t daemon() const { return daemon_; }
  std::string log() const;

  Ended vmctl(const std::vector<std::string>& words) const;
  // The same, and it must succeed; what it said on standard output.
  std::string ctl(const std::vector<std::string>& words) const;
  // A row's document; empty when there is none.
  std::string row(const std::string& table, const std::string& key) const;
  // Commits rows as a foreign program; an empty document removes one.
  void write(const std::string& table, const std::string& key, const std::string& doc) const;

  // Adds VMs that are configured disabled, with a good image.
  void addVm(const std::string& name, const std::vector<std::string>& more = {}) const;
  void script(const std::string& name, const std::string& steps) const;
  // The processes of that VM.
  std::vector<pid_t> guests(const std::string& name) const;
  std::vector<pid_t> guests() const;
  bool hasRow(const std::string& table, const std::string& key, const std::string& part) const;

  const std::string stateDir = "/var/run/state";
  const std::string runDir = "/var/run/vmagent";
  const std::string image = "/var/run/disk.img";

 private:
  static constexpr const char* logFile = "/var/run/vmagentd.log";

  pid_t daemon_ = 0;
};

// A file's content; what could be read of it, as of a process that ends meanwhile.
std::string contentOf(const std::string& path);

// Devices of the network of our own.
void ip(const std::string& arguments);

}  // namespace host::fakes
