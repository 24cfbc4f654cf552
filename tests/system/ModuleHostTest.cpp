// The module as a host loads it: by dlopen, from nothing but the records' and the root's headers.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>

#include "Vm/VmAgent/VmRoot.h"
#include "runtime/entity/TypeRegistry.h"
#include "runtime/fakes/ManualClock.h"
#include "runtime/loop/ActivityManager.h"
#include "tests/system/PrivateMounts.h"

namespace Vm {

namespace {

namespace fs = std::filesystem;

// A message's line in the golden file: "LEVEL MESSAGE", with what differs from run to run as a
// name in capitals.
std::string normalised(unsigned level, std::string_view message) {
  static const std::pair<std::regex, const char*> variable[] = {
      {std::regex("0x[0-9a-f]+"), "ADDRESS"},
      {std::regex("(kill pid:|<<)-?[0-9]+"), "$1PID"},
      {std::regex("\\(descriptor [0-9]+\\)"), "(descriptor FD)"},
      {std::regex("\r"), "\\r"},
      {std::regex("\n"), "\\n"},
  };
  std::string line = std::to_string(level) + " " + std::string(message);
  for (const auto& [pattern, name] : variable) line = std::regex_replace(line, pattern, name);
  return line;
}

// Keeps all but the high-volume level 9.
class GoldenSink final : public rt::TraceSink {
 public:
  GoldenSink() {
    rt::traceSinkIs(this);
    rt::vmTrace().levelsIs(1U << 1 | 1U << 2 | 1U << 7 | 1U << 8);
  }
  ~GoldenSink() override {
    rt::vmTrace().levelsIs(rt::TraceHandle::defaultLevels);
    rt::traceSinkIs(nullptr);
  }
  void write(const rt::TraceRecord& record) override {
    lines.push_back(normalised(record.level, record.message));
  }
  std::vector<std::string> lines;
};

class ModuleHost : public testing::Test {
 protected:
  ModuleHost() : module_(dlopen(VMAGENT_MODULE, RTLD_NOW | RTLD_LOCAL)) {
    std::ofstream("/var/run/disk.img") << "";
    fs::resize_file("/var/run/disk.img", 40000);
  }
  // The module stays loaded: its types are registered for good.

  Root::Ptr makeRoot(const char* name) const {
    Root::Ptr root;
    if (const auto factory = reinterpret_cast<RootFactory>(dlsym(module_, rootFactorySymbol)))
      factory(name, &root);
    return root;
  }
  VmConfig::Ptr addVm(const char* name) {
    auto vm = rt::make<VmConfig>(name);
    vm->diskImageIs("/var/run/disk.img");
    vm->memoryIs(256);
    config->vmConfigMount(vm);
    return vm;
  }
  // Turns the loop until `lines` of the trace contain `text` that often.
  void waitForTrace(const std::string& text, int times) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    const auto seen = [&] {
      return std::count_if(sink.lines.begin(), sink.lines.end(),
                           [&](const auto& line) { return line.find(text) != std::string::npos; });
    };
    while (seen() < times && std::chrono::steady_clock::now() < end)
      manager.turn(rt::Seconds(0.01));
    EXPECT_GE(seen(), times) << text;
  }
  // The pid that a VM's QEMU gave as its own.
  static int pidOf(const std::string& name) {
    std::ifstream file("/var/run/" + name + ".started");
    std::string word;
    int pid = 0;
    file >> word >> pid;
    return pid;
  }

  void* const module_;
  // Stands still, so no tick falls in between.
  rt::ActivityManager manager{rt::make<rt::fakes::ManualClock>()};
  GoldenSink sink;
  const Config::Ptr config = rt::make<Config>();
  const Status::Ptr status = rt::make<Status>();
};

TEST_F(ModuleHost, FindsTheFactoryAndGetsARootOfItsName) {
  ASSERT_NE(module_, nullptr) << dlerror();
  ASSERT_NE(dlsym(module_, rootFactorySymbol), nullptr);
  const auto root = makeRoot("vm");
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(root->name(), "vm");
  EXPECT_TRUE(root->hasNotificationActive());
  EXPECT_EQ(root->agent(), nullptr);
}

TEST_F(ModuleHost, FindsTheTypesOfAllThreeModulesRegistered) {
  ASSERT_NE(module_, nullptr) << dlerror();
  for (const char* name : {"Vm::Root", "Vm::VmSm", "Vm::VmConfigSm", "Vm::ChildProcess", "Vm::Vnic",
                           "Vm::MonitorSm", "Vm::QmpParserSm"})
    EXPECT_NE(rt::typeRegistry().type(name), nullptr) << name;
}

TEST_F(ModuleHost, RunsThreeVmsAsTheGoldenTraceSays) {
  ASSERT_NE(module_, nullptr) << dlerror();
  const auto root = makeRoot("vm");
  root->agentIs(config, status, rt::make<Interface::AllIntfStatusDir>(),
                rt::make<Interface::AllIntfStatusLocalDir>(),
                rt::make<Interface::DeviceIntfStatusDir>(), rt::make<KernelNetInfo::Status>(),
                rt::make<Bridging::Input::Config>());
  const auto step = [&](const std::string& what) { sink.lines.push_back("# " + what); };

  int started = 0;
  for (const char* name : {"web1", "web2", "web3"}) {
    step(std::string("start of ") + name);
    const auto vm = addVm(name);
    manager.turn(rt::Seconds(0));  // the new machine's first look at the clock
    vm->enabledIs(true);
    // The guest was let run: the last request of a start is answered.
    ++started;
    waitForTrace("id1: cont id2: cont", started);
    EXPECT_TRUE(status->vmStatus(name)->enabled());
  }
  step("web1's guest ends");
  fakes::signalProcess(pidOf("web1"), SIGTERM);
  waitForTrace("qemu process has disappeared", 1);
  EXPECT_EQ(status->vmStatus("web1")->state(), "Stopped");
  step("web2 is disabled");
  config->vmConfig("web2")->enabledIs(false);
  waitForTrace("qemu-kvm exited", 2);
  step("web3 is removed");
  config->vmConfigDel("web3");
  waitForTrace("ChildProcessSm::handlePipeFd", 3);
  step("the agent ends");
  root->agentDel();

  std::ifstream file(GOLDEN_TRACE);
  std::vector<std::string> golden;
  for (std::string line; std::getline(file, line);) golden.push_back(line);
  if (golden == sink.lines) return;
  std::ofstream actual("three-vms.trace.actual");
  std::copy(sink.lines.begin(), sink.lines.end(), std::ostream_iterator<std::string>(actual, "\n"));
  size_t first = 0;
  while (first < golden.size() && first < sink.lines.size() && golden[first] == sink.lines[first])
    ++first;
  ADD_FAILURE() << "The trace differs from line " << first + 1 << " on; it is in "
                << fs::current_path() / "three-vms.trace.actual"
                << "\nexpected: " << (first < golden.size() ? golden[first] : "(end)")
                << "\nactual:   " << (first < sink.lines.size() ? sink.lines[first] : "(end)");
}

}  // namespace

}  // namespace Vm
