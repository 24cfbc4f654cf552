// Any bytes as the document of a VM, then the rules for VMs over what was read.
//
// Of each document: either there are problems, and the VM is as it was and nothing was told; or
// there are none, and the VM's own document makes an equal VM of a new one.
#include "model/VmConfigCheck.h"
#include "runtime/base/Check.h"
#include "runtime/fakes/ChangeRecorder.h"
#include "statedb/EntityDocument.h"

namespace {

using statedb::documentOf;
using statedb::fill;

constexpr model::MachineLimits limits{.memory = 8192};
constexpr std::string_view longStanding =
    R"({"enabled":true,"diskImage":"/images/web.iso","memory":256,"vncPort":5901,)"
    R"("vnicConfig":{"nic00":{"model":"e1000","macAddr":"52:54:00:12:34:56",)"
    R"("intfName":"Vlan100"},"nic01":{"model":"rtl8139","macAddr":"52:54:00:12:34:57",)"
    R"("intfName":"Ethernet1"}}})";

void checkProblems(const std::vector<rt::Problem>& problems) {
  for (const auto& problem : problems) {
    rt::check(!problem.field.empty() && !problem.right.empty(), "a problem tells what and why");
    const rt::String text = problem.text();
    for (const char c : text.str())
      rt::check(static_cast<unsigned char>(c) >= 0x20, "a problem's text is one visible line");
  }
}

// Whether the document was taken.
bool fillOnce(Vm::VmConfig& vm, std::string_view json, const statedb::FillOptions& options) {
  const auto recorder = rt::make<rt::fakes::ChangeRecorder>();
  recorder->watch(rt::Ptr<Vm::VmConfig>(&vm));
  for (const auto& [key, card] : vm.vnicConfigs()) recorder->watch(card);
  const rt::String before = documentOf(vm);
  const auto problems = fill(vm, json, options);
  checkProblems(problems);
  const bool same = documentOf(vm) == before;
  const bool silent = recorder->take().empty();
  rt::check(problems.empty() || same, "what is refused changes nothing");
  rt::check(same == silent, "what changes is told, and nothing else");
  return problems.empty();
}

void checkRoundTrip(Vm::VmConfig& vm, const statedb::FillOptions& options) {
  const rt::String document = documentOf(vm);
  const auto other = rt::make<Vm::VmConfig>(vm.name());
  rt::check(fill(*other, document, options).empty(), "a VM's own document is right");
  rt::check(documentOf(*other) == document, "and makes an equal VM");
  rt::check(fillOnce(vm, document, options), "for the VM itself too");
}

// What the agent's command line relies on.
void checkSafe(const Vm::VmConfig& vm) {
  rt::check(
      vm.diskImage().str().find_first_of(std::string_view(" ,\n\t\0", 5)) == std::string::npos,
      "a path that passes is one argument");
  for (const auto& [key, card] : vm.vnicConfigs())
    rt::check(!card->model().empty() && card->macAddr().isUnicast() && !card->intfName().empty(),
              "a card that passes is whole");
}

void check(std::string_view json, std::string_view standing, bool withRules) {
  const auto vm = rt::make<Vm::VmConfig>("web1");
  rt::check(fill(*vm, standing).empty(), "the first document is right");
  const model::ConfigIndex others;
  statedb::FillOptions options{.switchAttribute = "enabled", .check = {}};
  if (withRules)
    options.check = [&](const rt::Entity& read) {
      return problemsOf(static_cast<const Vm::VmConfig&>(read), others, limits);
    };
  if (!fillOnce(*vm, json, options)) return;
  checkRoundTrip(*vm, options);
  if (withRules) checkSafe(*vm);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view json(reinterpret_cast<const char*>(data), size);
  for (const std::string_view standing : {std::string_view("{}"), longStanding})
    for (const bool withRules : {false, true}) check(json, standing, withRules);
  return 0;
}
