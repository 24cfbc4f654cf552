#include "sim/oracle/Scene.h"

#include <sys/wait.h>

#include <algorithm>

namespace sim {

namespace {

constexpr const char* qemuPath = "/usr/bin/qemu-system-x86_64";
constexpr const char* realQemuPath = "/usr/libexec/vmagent-qemu";

std::vector<Process*> processesOf(World& world, const std::string& vm,
                                  bool (*isOne)(const Process&)) {
  std::vector<Process*> found;
  for (const auto& [pid, process] : world.machine.processes.all())
    if (process->lives() && isOne(*process) && vmOf(*process) == vm) found.push_back(process.get());
  std::sort(found.begin(), found.end(), [](const Process* a, const Process* b) {
    return std::pair(a->started, a->pid) < std::pair(b->started, b->pid);
  });
  return found;
}

}  // namespace

std::string vmOf(const Process& process) {
  const auto& words = process.arguments;
  const auto name = std::find(words.begin(), words.end(), "-name");
  return name == words.end() || name + 1 == words.end() ? "" : *(name + 1);
}

bool isDaemon(const Process& process) { return process.programPath == daemonPath; }
bool isShim(const Process& process) {
  return process.programPath == shimPath || process.programPath == qemuPath;
}
bool isCommand(const Process& process) { return process.programPath == commandPath; }
bool isQemu(const Process& process) { return process.programPath == realQemuPath; }
bool isOurs(const Process& process) {
  return isDaemon(process) || isShim(process) || isCommand(process);
}

std::vector<Process*> shimsOf(World& world, const std::string& vm) {
  return processesOf(world, vm, isShim);
}
std::vector<Process*> qemusOf(World& world, const std::string& vm) {
  return processesOf(world, vm, isQemu);
}

std::string nameOf(const Process& process) {
  std::string name = "a process";
  if (isDaemon(process)) name = "vmagentd";
  if (isShim(process)) name = "vmagent-shim of " + vmOf(process);
  if (isCommand(process)) name = "vmctl";
  if (isQemu(process)) name = "QEMU of " + vmOf(process);
  return name + " (" + std::to_string(process.pid) + ")";
}

std::string textOf(const MacAddress& mac) {
  char text[18];
  std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
                mac[4], mac[5]);
  return text;
}

std::string endText(int waitStatus) {
  if (WIFSIGNALED(waitStatus)) return "ended by signal " + std::to_string(WTERMSIG(waitStatus));
  return "ended with status " + std::to_string(WEXITSTATUS(waitStatus));
}

}  // namespace sim
