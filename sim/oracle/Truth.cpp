#include "sim/oracle/Truth.h"

#include <algorithm>
#include <set>

#include "sim/oracle/Document.h"

namespace sim {

namespace {

std::string rowOf(const Rows& rows, const std::string& table, const std::string& key) {
  const auto found = rows.find(table + "/" + key);
  return found == rows.end() ? "" : found->second;
}

const std::string vmTable = "vmConfig/";
constexpr Duration slowAnswer = std::chrono::seconds(1);

}  // namespace

bool Truth::isGood(const Qemu& qemu) {
  const QemuManner& manner = qemu.manner();
  return (manner.answers == QemuManner::Answers::good ||
          manner.answers == QemuManner::Answers::halves) &&
         manner.untilAnswer < slowAnswer && manner.untilGreeting < slowAnswer;
}

std::vector<std::string> Truth::vmsOf(const Rows& status) const {
  std::set<std::string> vms;
  for (const Rows* const rows : {&configuration_, &status})
    for (const auto& [key, document] : *rows)
      if (key.starts_with("vm")) vms.insert(key.substr(key.find('/') + 1));
  for (const auto& [pid, qemu] : world_.qemus.all()) vms.insert(qemu->vm());
  return {vms.begin(), vms.end()};
}

std::optional<Finding> Truth::firstLie(const Rows& status) const {
  if (!world_.daemon()) return Finding{"status", "vmagentd", "does not run"};
  for (const std::string& vm : vmsOf(status))
    if (auto found = lieOf(vm, status)) return found;
  return std::nullopt;
}

std::optional<Finding> Truth::lieOf(const std::string& vm, const Rows& status) const {
  const std::string process = rowOf(status, "vmProcess", vm);
  const std::string state = memberOf(rowOf(status, "vmStatus", vm), "state");
  const std::string word = memberOf(process, "process");
  const bool isConfigured = configuration_.contains(vmTable + vm);
  const auto lie = [&](const std::string& text) { return Finding{"status", vm, text}; };
  const auto qemus = world_.qemus.of(vm);
  const auto shims = shimsOf(world_, vm);
  if (word == "running") {
    const auto told = world_.machine.processes.find(std::atoi(memberOf(process, "pid").c_str()));
    if (!told || !told->lives() || !isShim(*told) || vmOf(*told) != vm)
      return lie("its process is none of its own: " + process);
  }
  if ((word.empty() || word == "none") && !(qemus.empty() && shims.empty()) && !ledger_.isLost(vm))
    return lie("it has a process, and is shown with none: " + process);
  if (state == "Running" && (qemus.empty() || !qemus.front()->guestRuns()))
    return lie("no guest of it runs, and it is shown running");
  const bool mayBeOther = !isConfigured && mayBeUnknown && state.empty();
  const bool isToEnd = !qemus.empty() && ledger_.wasAskedToEnd(vm, qemus.front()->started());
  if (state != "Running" && word == "running" && !qemus.empty() && isGood(*qemus.front()) &&
      qemus.front()->guestRuns() && !isToEnd && !mayBeOther)
    return lie("its guest runs, and it is shown " + state);
  const std::string problem = memberOf(rowOf(status, "vmProblem", vm), "problem");
  if (ledger_.wanted(vm) == true && qemus.empty() && problem.empty() && !ledger_.standsWell(vm))
    return lie("it does not run, and nothing says why");
  const auto lastWord = ledger_.lastWordOf(vm);
  if (lastWord && ledger_.wanted(vm) == true && qemus.empty() && shims.empty() &&
      problem.find(*lastWord) == std::string::npos)
    return lie("its QEMU said '" + *lastWord + "', and what is told is '" + problem + "'");
  if (!isConfigured && word.empty() && !rowOf(status, "vmStatus", vm).empty())
    return lie("it is not configured, has no process, and has a status");
  return std::nullopt;
}

std::optional<Finding> Truth::firstFault(const Rows& status) const {
  if (!world_.daemon()) return Finding{"wanted", "vmagentd", "does not run"};
  for (const std::string& vm : vmsOf(status))
    if (auto found = faultOf(vm, status)) return found;
  if (auto found = strayDevice()) return found;
  if (world_.machine.files.at("/run/vmagentd.starting"))
    return Finding{"wanted", "vmagentd", "/run/vmagentd.starting is left"};
  return std::nullopt;
}

std::optional<Finding> Truth::faultOf(const std::string& vm, const Rows& status) const {
  const auto fault = [&](const std::string& text) { return Finding{"wanted", vm, text}; };
  const auto qemus = world_.qemus.of(vm);
  const auto shims = shimsOf(world_, vm);
  const auto wanted = ledger_.wanted(vm);
  const bool isConfigured = configuration_.contains("vmConfig/" + vm);
  if (!wanted || (!isConfigured && mayBeUnknown) || ledger_.isLost(vm)) return std::nullopt;
  if (wanted == false && !(qemus.empty() && shims.empty()))
    return fault("its VM is off, and it has " + std::to_string(qemus.size()) + " QEMUs and " +
                 std::to_string(shims.size()) + " shims");
  const bool isEnabled = memberOf(rowOf(status, "vmStatus", vm), "enabled") == "true";
  if (wanted == false && isEnabled) return fault("its VM is off, and it is shown enabled");
  const auto stands = ledger_.standsBecause(vm);
  if (wanted == true && qemus.empty() && !stands)
    return fault("its VM is on, and it does not run: " + rowOf(status, "vmProblem", vm));
  if (!qemus.empty() && ledger_.wasAskedToEnd(vm, qemus.front()->started()) &&
      !ledger_.wasLost(vm, qemus.front()->started()) && !mayBeUnknown)
    return fault("its guest was to end, and is still there");
  if (shims.size() > 2 || (qemus.empty() && !shims.empty()) || (!qemus.empty() && shims.empty()))
    return fault("it has " + std::to_string(shims.size()) + " shims and " +
                 std::to_string(qemus.size()) + " QEMUs");
  if (!qemus.empty() && !qemus.front()->guestRuns() && isGood(*qemus.front()))
    return fault("its guest was never let run");
  if (!qemus.empty() && isGood(*qemus.front()))
    if (auto found = cardFaultOf(*qemus.front())) return found;
  const std::string problem = rowOf(status, "vmProblem", vm);
  if (!qemus.empty() && qemus.front()->manner().answers == QemuManner::Answers::none &&
      problem.empty())
    return fault("its QEMU does not answer, and nothing says so");
  if (!qemus.empty() && memberOf(problem, "source") == "card")
    return Finding{"card", vm, "its cards are well, and it is shown with " + problem};
  return strayFile(vm, !qemus.empty());
}

std::optional<Finding> Truth::strayFile(const std::string& vm, bool runs) const {
  for (const std::string& path : {"/run/" + vm + ".monitor", "/run/vmagent/vm/" + vm + "/shim.sock",
                                  "/run/vmagent/vm/" + vm + "/console.sock"})
    if (world_.machine.files.at(path) && !runs && !ledger_.isOrphan(path))
      return Finding{"wanted", vm, path + " is left"};
  return std::nullopt;
}

std::optional<Finding> Truth::cardFaultOf(const Qemu& qemu) const {
  const auto rows = cardsOf(rowOf(configuration_, "vmConfig", qemu.vm()));
  for (const auto& [id, card] : qemu.devices().cards()) {
    const auto row = std::find_if(rows.begin(), rows.end(), [&mac = card.mac](const CardRow& each) {
      return each.mac == mac;
    });
    // What was added or moved meanwhile is so from the next start on.
    if (row == rows.end() || row->key == "more") continue;
    const Link* const port = world_.machine.network.find(row->device);
    if (port && !qemu.devices().isConnected(id))
      return Finding{"card", qemu.vm(), "card " + id + " is not connected to " + row->device};
    if (!port && qemu.devices().hasLink(id))
      return Finding{"card", qemu.vm(), "card " + id + " has a carrier, and no " + row->device};
  }
  return std::nullopt;
}

bool Truth::isConfiguredCard(const std::string& mac, bool isOn) const {
  return std::any_of(configuration_.begin(), configuration_.end(), [&](const auto& each) {
    if (!each.first.starts_with(vmTable)) return false;
    if (isOn && ledger_.wanted(each.first.substr(vmTable.size())) == false) return false;
    const auto cards = cardsOf(each.second);
    return std::any_of(cards.begin(), cards.end(),
                       [&](const CardRow& card) { return card.mac == mac; });
  });
}

// Each tap is a card's of a guest that runs, or of a VM that is on; and of each there is one.
std::optional<Finding> Truth::strayDevice() const {
  std::set<std::pair<uint32_t, MacAddress>> seen;
  for (const auto& [index, link] : world_.machine.network.links()) {
    if (!link.isTap()) continue;
    const std::string mac = textOf(link.mac);
    if (!seen.emplace(link.lower, link.mac).second)
      return Finding{"device", link.name, "is the second of " + mac};
    const auto has = [&mac](const auto& each) {
      const auto& cards = each.second->devices().cards();
      return std::any_of(cards.begin(), cards.end(),
                         [&mac](const auto& card) { return card.second.mac == mac; });
    };
    const auto& qemus = world_.qemus.all();
    if (std::none_of(qemus.begin(), qemus.end(), has) && !isConfiguredCard(mac, true) &&
        !(ledger_.isOrphan(mac) && !isConfiguredCard(mac)) && !ledger_.isOrphan("off " + mac))
      return Finding{"device", link.name, "is no guest's (" + mac + ")"};
  }
  return std::nullopt;
}

std::optional<Finding> Truth::firstRemnant(const Rows& status) const {
  if (!world_.qemus.all().empty()) return Finding{"remnant", "QEMU", "is left"};
  for (const auto& [pid, process] : world_.machine.processes.all())
    if (isShim(*process) && process->lives())
      return Finding{"remnant", nameOf(*process), "is left"};
  if (auto found = strayDevice()) return found;
  if (!status.empty())
    return Finding{"remnant", status.begin()->first, "is left: " + status.begin()->second};
  for (const auto& [path, inode] : world_.machine.files.at("/run")->children)
    if (path.ends_with(".monitor") && !ledger_.isOrphan(path))
      return Finding{"remnant", path, "is left"};
  return std::nullopt;
}

}  // namespace sim
