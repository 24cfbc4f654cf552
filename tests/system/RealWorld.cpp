#include "tests/system/RealWorld.h"

#include <signal.h>

#include <chrono>
#include <filesystem>
#include <fstream>

#include "tests/system/PrivateMounts.h"

namespace Vm::fakes {

namespace {

namespace fs = std::filesystem;

std::string beside(const std::string& name, const char* suffix) {
  return "/var/run/" + name + "." + suffix;
}

}  // namespace

RealWorld::RealWorld() {
  std::ofstream(disk()) << "";
  fs::resize_file(disk(), 40000);
  root->agentIs(config, status, rt::make<Interface::AllIntfStatusDir>(),
                rt::make<Interface::AllIntfStatusLocalDir>(),
                rt::make<Interface::DeviceIntfStatusDir>(), rt::make<KernelNetInfo::Status>(),
                rt::make<Bridging::Input::Config>());
}

RealWorld::~RealWorld() {
  std::vector<ChildProcess::Ptr> children;
  for (const auto& [name, vm] : root->agent()->vmSm()->vmConfigSms())
    if (vm->qemuChildProcess()) children.push_back(vm->qemuChildProcess());
  root->agentDel();
  for (const auto& child : children) signalProcess(child->pid(), SIGKILL);
  for (const auto& child : children)
    waitFor([&] { return child->status() != ChildProcess::StatusCode::none; });
  for (const auto& entry : fs::directory_iterator("/var/run"))
    if (!entry.is_directory()) fs::remove(entry);
}

VmConfig::Ptr RealWorld::addVm(const std::string& name, const std::string& script) {
  if (!script.empty()) std::ofstream(beside(name, "script")) << script;
  auto vm = rt::make<VmConfig>(name);
  vm->diskImageIs(disk());
  vm->memoryIs(256);
  config->vmConfigMount(vm);
  return vm;
}

QemuStart RealWorld::startOf(const std::string& name) {
  QemuStart start;
  if (!waitFor([&] { return fs::exists(beside(name, "started")); })) return start;
  std::ifstream file(beside(name, "started"));
  for (std::string line; std::getline(file, line);) {
    const std::string word = line.substr(0, line.find(' '));
    const std::string rest = line.substr(std::min(word.size() + 1, line.size()));
    if (word == "pid") start.pid = std::stoi(rest);
    if (word == "arg") start.args.push_back(rest);
    if (word == "fd") start.descriptors[std::stoi(rest)] = rest.substr(rest.find(' ') + 1);
    if (word == "blocked") start.blocked = rest;
    if (word == "ignored") start.ignored = rest;
  }
  return start;
}

bool RealWorld::waitForAnswers(const std::string& name) {
  return waitFor([&] {
    const auto session = vm(name)->monSm();
    return session && session->helloMessage() && !session->isPendingRequest() &&
           session->qmpRequests() == 0;
  });
}

bool RealWorld::waitFor(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    manager.turn(rt::Seconds(0.01));
  }
  return true;
}

}  // namespace Vm::fakes
