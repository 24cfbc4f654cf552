#include "tests/system/ModuleWorld.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "tests/system/PrivateMounts.h"

namespace Vm::fakes {

namespace {

namespace fs = std::filesystem;
using Time = std::chrono::steady_clock;

constexpr const char* disk = "/var/run/disk.img";
constexpr std::chrono::seconds patience{30};
// The loop is looked after this often, so that conditions outside of it are seen as well.
constexpr rt::Seconds pulse{0.01};

double secondsSince(Time::time_point start) {
  return std::chrono::duration<double>(Time::now() - start).count();
}

}  // namespace

Root::Ptr loadRoot(const char* name) {
  Root::Ptr root;
  void* const module = dlopen(VMAGENT_MODULE, RTLD_NOW | RTLD_LOCAL);
  if (!module) {
    ADD_FAILURE() << dlerror();
    return root;
  }
  const auto factory = reinterpret_cast<RootFactory>(dlsym(module, rootFactorySymbol));
  if (factory)
    factory(name, &root);
  else
    ADD_FAILURE() << dlerror();
  return root;
}

std::string besideMonitor(const std::string& vmName, const char* suffix) {
  return "/var/run/" + vmName + "." + suffix;
}

std::vector<TakenRequest> requestsOf(const std::string& vmName) {
  std::vector<TakenRequest> requests;
  std::ifstream file(besideMonitor(vmName, "requests"));
  for (TakenRequest request;
       file >> request.time && file.ignore() && std::getline(file, request.text);)
    requests.push_back(request);
  return requests;
}

ModuleWorld::ModuleWorld(rt::Ptr<rt::Clock> clock) : manager(std::move(clock)) {
  std::ofstream(disk) << "";
  fs::resize_file(disk, 40000);
  // As a host does: a session may write to a QEMU that has gone.
  std::signal(SIGPIPE, SIG_IGN);
}

ModuleWorld::~ModuleWorld() {
  if (root && root->agent()) endGuests();
  for (const auto& entry : fs::directory_iterator("/var/run"))
    if (!entry.is_directory()) fs::remove(entry);
}

void ModuleWorld::endGuests() {
  std::vector<ChildProcess::Ptr> children;
  for (const auto& [name, machine] : root->agent()->vmSm()->vmConfigSms())
    if (machine->qemuChildProcess()) children.push_back(machine->qemuChildProcess());
  root->agentDel();
  const auto lives = [](const ChildProcess::Ptr& child) {
    return child->status() == ChildProcess::StatusCode::none;
  };
  for (const auto& child : children)
    if (lives(child)) signalProcess(child->pid(), SIGKILL);
  EXPECT_TRUE(waitFor([&] { return std::none_of(children.begin(), children.end(), lives); }));
}

void ModuleWorld::start() {
  root->agentIs(config, status, rt::make<Interface::AllIntfStatusDir>(), allIntfStatusLocalDir,
                rt::make<Interface::DeviceIntfStatusDir>(), kniStatus,
                rt::make<Bridging::Input::Config>());
}

VmConfig::Ptr ModuleWorld::addVm(const std::string& name, const std::string& script) {
  if (!script.empty()) std::ofstream(besideMonitor(name, "script")) << script;
  auto added = rt::make<VmConfig>(name);
  added->diskImageIs(disk);
  added->memoryIs(256);
  config->vmConfigMount(added);
  manager.turn(rt::Seconds(0));
  return added;
}

bool ModuleWorld::waitFor(const std::function<bool()>& condition) {
  const auto start = Time::now();
  while (!condition()) {
    const auto turnStart = Time::now();
    if (turnStart - start > patience) return false;
    manager.turn(pulse);
    longestTurn_ = std::max(longestTurn_, secondsSince(turnStart));
  }
  return true;
}

bool ModuleWorld::waitForAnswers(const std::string& name) {
  return waitFor([&] {
    const auto session = vm(name)->monSm();
    return session && session->helloMessage() && !session->isPendingRequest() &&
           session->qmpRequests() == 0;
  });
}

}  // namespace Vm::fakes
