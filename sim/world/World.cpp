#include "sim/world/World.h"

#include <fcntl.h>
#include <net/if.h>
#include <unistd.h>

#include "sim/kernel/InodeFile.h"

namespace sim {

World::World(uint64_t seed) : machine(seed) {
  install(machine);
  machine.files.fileAt("/usr/libexec/vmagent-qemu", "program", 0755)->program = qemuProgram(qemus);
  machine.processes.ending.push_back(
      [this](const Process& process, int /*waitStatus*/) { qemus.remove(process.pid); });
  log_ = machine.files.fileAt("/var/log/vmagentd.log", "");
}

Process& World::startDaemon(const std::vector<std::string>& options) {
  std::vector<std::string> words = {"vmagentd", "--shim", shimPath, "--accel", "tcg"};
  words.insert(words.end(), options.begin(), options.end());
  Process& started = machine.processes.spawn(daemonPath, words, usualEnvironment());
  log_->bytes.clear();
  const auto output = std::make_shared<InodeFile>(log_, "/var/log/vmagentd.log");
  output->flags = O_WRONLY | O_APPEND;
  started.descriptors.set(STDOUT_FILENO, output, false);
  started.descriptors.set(STDERR_FILENO, output, false);
  daemon_ = machine.processes.sharedOf(started);
  return started;
}

bool World::becomesReady(Duration time) {
  return machine.scheduler.runUntil(
      [this] { return log().find("vmagentd: ready\n") != std::string::npos; },
      machine.now() + time);
}

std::string World::addVm(const std::string& vm, const std::string& more) {
  const std::string disk = "/var/lib/images/" + vm + ".img";
  constexpr size_t size = 64 * 1024;
  machine.files.fileAt(disk, std::string(size, '\0'));
  return person.put("vmConfig", vm,
                    R"({"enabled":true,"diskImage":")" + disk + R"(","memory":64)" + more + "}");
}

bool World::until(const std::function<bool()>& holds, Duration time) {
  return machine.scheduler.runUntil(holds, machine.now() + time);
}

uint32_t World::plug(const std::string& port) {
  Link link;
  link.name = port;
  link.flags = IFF_UP | IFF_RUNNING | IFF_BROADCAST | IFF_MULTICAST;
  constexpr uint8_t ofThisMachine = 0x02;
  link.mac = {ofThisMachine, 0, 0, 0, 0, ++ports_};
  return static_cast<uint32_t>(machine.network.add(link));
}

void World::unplug(const std::string& port) {
  if (const Link* const link = machine.network.find(port)) machine.network.remove(link->index);
}

bool World::daemonIsGone() const { return !daemon_ || daemon_->state == Process::State::zombie; }

Process* World::daemon() const { return daemon_ && daemon_->lives() ? daemon_.get() : nullptr; }

}  // namespace sim
