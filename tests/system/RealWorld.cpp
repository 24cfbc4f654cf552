#include "tests/system/RealWorld.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "runtime/base/Check.h"
#include "tests/system/PrivateMounts.h"

namespace Vm::fakes {

namespace {

namespace fs = std::filesystem;
using Time = std::chrono::steady_clock;

constexpr std::chrono::seconds patience{30};
// The loop is looked after this often, so that conditions outside of it are seen as well.
constexpr rt::Seconds pulse{0.01};

double secondsSince(Time::time_point start) {
  return std::chrono::duration<double>(Time::now() - start).count();
}

}  // namespace

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

RealWorld::RealWorld(Root::Ptr (*newRoot)(const rt::String&), rt::Ptr<rt::Clock> clock)
    : manager(std::move(clock)), root(newRoot("vm")) {
  std::ofstream(disk()) << "";
  fs::resize_file(disk(), 40000);
}

RealWorld::~RealWorld() {
  if (root && root->agent()) endGuests();
  for (const auto& entry : fs::directory_iterator("/var/run"))
    if (!entry.is_directory()) fs::remove(entry);
}

void RealWorld::endGuests() {
  std::vector<ChildProcess::Ptr> children;
  for (const auto& [name, machine] : root->agent()->vmSm()->vmConfigSms())
    if (machine->qemuChildProcess()) children.push_back(machine->qemuChildProcess());
  root->agentDel();
  const auto lives = [](const ChildProcess::Ptr& child) {
    return child->status() == ChildProcess::StatusCode::none;
  };
  for (const auto& child : children)
    if (lives(child)) signalProcess(child->pid(), SIGKILL);
  rt::check(waitFor([&] { return std::none_of(children.begin(), children.end(), lives); }),
            "a QEMU of a test does not end");
}

void RealWorld::start() {
  root->agentIs(config, status, rt::make<Interface::AllIntfStatusDir>(), allIntfStatusLocalDir,
                rt::make<Interface::DeviceIntfStatusDir>(), kniStatus,
                rt::make<Bridging::Input::Config>());
}

VmConfig::Ptr RealWorld::addVm(const std::string& name, const std::string& script) {
  if (!script.empty()) std::ofstream(besideMonitor(name, "script")) << script;
  auto added = rt::make<VmConfig>(name);
  added->diskImageIs(disk());
  added->memoryIs(256);
  config->vmConfigMount(added);
  manager.turn(rt::Seconds(0));
  return added;
}

QemuStart RealWorld::startOf(const std::string& name) {
  QemuStart start;
  const std::string said = besideMonitor(name, "started");
  if (!waitFor([&] { return fs::exists(said); })) return start;
  std::ifstream file(said);
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

bool RealWorld::waitFor(const std::function<bool()>& condition) {
  const auto start = Time::now();
  while (!condition()) {
    const auto turnStart = Time::now();
    if (turnStart - start > patience) return false;
    manager.turn(pulse);
    longestTurn_ = std::max(longestTurn_, secondsSince(turnStart));
  }
  return true;
}

bool RealWorld::waitForAnswers(const std::string& name) {
  return waitFor([&] {
    const auto session = vm(name)->monSm();
    return session && session->helloMessage() && !session->isPendingRequest() &&
           session->qmpRequests() == 0;
  });
}

}  // namespace Vm::fakes
