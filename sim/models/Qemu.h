// QEMU, as a program of the world.
#pragma once

#include <sys/types.h>

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sim/kernel/Inode.h"
#include "sim/models/QemuDevices.h"
#include "sim/models/QemuManner.h"

namespace sim {

class Qemus;

// One process. Takes a shim's command line: monitor and console are descriptors.
class Qemu {
 public:
  Qemu(Qemus& all, std::vector<std::string> arguments);
  Qemu(const Qemu&) = delete;

  int run();

  const std::string& vm() const { return vm_; }
  const std::string& image() const { return imagePath_; }
  const InodePtr& disk() const { return disk_; }
  const QemuDevices& devices() const { return devices_; }
  bool guestRuns() const { return state_ == State::running; }
  Time started() const { return started_; }
  const std::vector<std::string>& arguments() const { return arguments_; }
  QemuManner& manner() { return manner_; }
  const QemuManner& manner() const { return manner_; }
  // Its guest shuts itself down, now.
  void powerOff();
  // What it was asked, the last at the end.
  const std::deque<std::string>& asked() const { return asked_; }

 private:
  enum class State { prelaunch, running, off };
  struct Saying {
    Time due;
    std::string text;
  };

  void readArguments();
  std::string openDisk();
  Time nextTime() const;
  void passTime();
  void receive();
  void hear(const std::string& line);
  std::string answerTo(const std::string& line);
  QemuDevices::Answer carryOut(const std::string& execute, const void* arguments);
  QemuDevices::Answer removeNetdev(const std::string& id);
  void say(const std::string& answer);
  void event(const std::string& name, const std::string& data = "");
  void sayDue();
  void writeLine(const std::string& text);
  void listenToConsole();
  void shutDown(const std::string& reason, bool byGuest);
  void powerButton();
  int end();

  Qemus& all_;
  const pid_t pid_;
  const std::vector<std::string> arguments_;
  std::string vm_;
  std::string drive_;
  std::map<std::string, std::vector<int>> fileSets_;
  std::string imagePath_;
  InodePtr disk_;
  QemuDevices devices_;
  QemuManner manner_;
  int monitor_ = -1;
  int console_ = -1;
  State state_ = State::prelaunch;
  Time started_{};
  std::string unread_;
  std::vector<FilePtr> came_;  // descriptors' files, not yet named
  std::deque<Saying> unsaid_;
  std::deque<std::string> asked_;
  bool greeted_ = false;
  bool canSpeak_ = true;
  unsigned answers_ = 0;
  std::optional<Time> powerOffAt_;
  std::optional<Time> floodAt_;
  bool ends_ = false;
};

// All that live, by their process' number.
class Qemus {
 public:
  // Those of a VM, of which there should be one at most.
  std::vector<const Qemu*> of(const std::string& vm) const;
  Qemu* find(pid_t pid) const;
  const std::map<pid_t, Qemu*>& all() const { return all_; }

  void add(pid_t pid, Qemu& qemu);
  void remove(pid_t pid) { all_.erase(pid); }

  // How one that starts is to behave.
  std::function<QemuManner(const std::string& vm)> mannerOf;
  // Told of a card of a guest that runs, which has lost the device that is there, and has nothing
  // in its place.
  std::function<void(const std::string& vm, const std::string& card)> bared;
  // Told of each that has its disk open.
  std::function<void(pid_t, const Qemu&)> added;

 private:
  std::map<pid_t, Qemu*> all_;
};

// What stands at QEMU's path.
Program qemuProgram(Qemus& all);

}  // namespace sim
