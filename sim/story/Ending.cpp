#include "sim/story/Ending.h"

#include <algorithm>
#include <csignal>

#include "sim/oracle/Document.h"
#include "sim/oracle/Truth.h"

namespace sim {

namespace {

using namespace std::chrono_literals;

constexpr Duration untilTrue = 10s;     // the status
constexpr Duration untilAtRest = 150s;  // what was asked for
constexpr Duration untilCards = 330s;   // a card that was refused is tried again every five minutes
constexpr Duration aWhile = 31s;        // six polls

void act(Stage& stage, const char* word, unsigned subject = 0) {
  Step step;
  step.kind = kindFromWord(word);
  step.subject = subject;
  stage.play(step);
}

const Rows& statusOf(Stage& stage) {
  if (auto rows = stage.world.person.readRows(statusTables)) stage.lastStatus = std::move(*rows);
  return stage.lastStatus;
}

// Strangers' devices and rows go, and what they have broken is mended.
void tidy(Stage& stage) {
  Machine& machine = stage.world.machine;
  std::vector<uint32_t> strangers;
  for (const auto& [index, link] : machine.network.links())
    if (link.kind == "dummy") strangers.push_back(index);
  for (const uint32_t each : strangers) machine.network.remove(each);
  // Not all need be there.
  const bool isWhole = machine.choices.stream("healing").below(2) == 0;
  for (unsigned port = 1; port <= (isWhole ? 4 : 3); ++port) act(stage, "plug", port);
  for (const std::string& path : stage.spoiltFiles) machine.files.removeAt(path);
  for (unsigned vm = 1; vm <= 4; ++vm) {
    act(stage, "restore-image", vm);
    stage.ledger.troubleIs("vm" + std::to_string(vm), "its files are spoilt", false);
  }
  for (const std::string& vm : stage.vms()) {
    if (stage.isValid(vm)) continue;
    stage.ledger.askToEnd(vm, "its row is put right");
    stage.world.person.remove("vmConfig", vm);
    stage.readRows();
    if (vm.size() == 3 && vm.starts_with("vm"))
      act(stage, "add", static_cast<unsigned>(vm.back() - '0'));
  }
}

bool isHeld(Stage& stage) {
  const auto& all = stage.world.machine.processes.all();
  return std::any_of(all.begin(), all.end(),
                     [](const auto& each) { return each.second->programPath == holderPath; });
}

void heal(Stage& stage) {
  stage.diary.step("all is put right");
  stage.weather.calm();
  stage.nextManners.clear();
  const auto processes = stage.world.machine.processes.all();
  for (const auto& [pid, process] : processes)
    if (process->lives()) stage.world.machine.processes.signal(*process, {SIGCONT, 0, 0});
  act(stage, "free-disk");
  act(stage, "free-run");
  act(stage, "return-store");
  stage.world.pass(1s);
  // Whoever holds a database at a start keeps the daemon from it.
  stage.world.until([&] { return !isHeld(stage); }, 10s);
  stage.ledger.touchAll();
  stage.startDaemon();
  stage.world.pass(1s);
  if (!stage.hasFailed()) tidy(stage);
}

// Looks until nothing is found, or time is up.
template <class Look>
void become(Stage& stage, Duration time, const Look& look) {
  const Time begin = stage.world.machine.now();
  while (!stage.hasFailed()) {
    const std::optional<Finding> found = look(statusOf(stage));
    if (!found) return;
    const Duration longest = found->clause == "card" ? std::max(time, untilCards) : time;
    if (stage.world.machine.now() - begin > longest)
      return stage.fail(found->clause, found->about, found->text);
    stage.world.pass(500ms);
  }
}

// Of VMs whose QEMU does as it is asked: of others something may be told at any time.
Rows quietRows(Stage& stage, Rows rows) {
  for (const auto& [pid, qemu] : stage.world.qemus.all())
    if (!Truth::isGood(*qemu))
      std::erase_if(
          rows, [&vm = qemu->vm()](const auto& each) { return each.first.ends_with("/" + vm); });
  return rows;
}

std::map<std::string, std::string> filesOf(Stage& stage) {
  std::map<std::string, std::string> files;
  for (const char* const path : {"/var/lib/vmagent/config.db", "/var/lib/vmagent/config.db-wal",
                                 "/run/vmagent/status.db", "/run/vmagent/status.db-wal"})
    if (const InodePtr file = stage.world.machine.files.at(path)) files[path] = file->bytes;
  return files;
}

std::set<uint32_t> devicesOf(Stage& stage) {
  std::set<uint32_t> devices;
  for (const auto& [index, link] : stage.world.machine.network.links()) devices.insert(index);
  return devices;
}

std::map<pid_t, size_t> processesOf(Stage& stage) {
  std::map<pid_t, size_t> processes;
  for (const auto& [pid, process] : stage.world.machine.processes.all())
    if (isOurs(*process) || isQemu(*process)) processes[pid] = process->descriptors.count();
  return processes;
}

std::map<pid_t, uint64_t> callsOf(Stage& stage) {
  std::map<pid_t, uint64_t> calls;
  for (const auto& [pid, process] : stage.world.machine.processes.all())
    if (isDaemon(*process) || isShim(*process)) calls[pid] = process->calls;
  return calls;
}

void checkAsked(Stage& stage) {
  constexpr size_t polls = 5;
  for (const auto& [pid, qemu] : stage.world.qemus.all()) {
    const auto& asked = qemu->asked();
    if (!Truth::isGood(*qemu) || !qemu->guestRuns() || stage.ledger.isLost(qemu->vm()) ||
        stage.row(qemu->vm()).empty())
      continue;
    for (size_t i = asked.size() - std::min(polls, asked.size()); i < asked.size(); ++i)
      if (asked[i].find("query-status") == std::string::npos)
        return stage.fail("rest", qemu->vm(), "is asked at rest: " + asked[i]);
  }
}

std::string difference(const Rows& before, const Rows& after) {
  for (const Rows* const rows : {&before, &after})
    for (const auto& [key, document] : *rows) {
      const auto was = before.find(key);
      const auto is = after.find(key);
      if (was == before.end() || is == after.end() || was->second != is->second)
        return key + " was " + (was == before.end() ? "none" : was->second) + ", is " +
               (is == after.end() ? "none" : is->second);
    }
  return {};
}

// Nothing happens to a machine that is left alone.
void checkRest(Stage& stage) {
  const Rows status = quietRows(stage, statusOf(stage));
  stage.world.pass(1s);
  const auto files = filesOf(stage);
  const auto devices = devicesOf(stage);
  const auto processes = processesOf(stage);
  const auto calls = callsOf(stage);
  stage.world.pass(aWhile);
  if (stage.hasFailed()) return;
  if (const Rows now = quietRows(stage, statusOf(stage)); now != status)
    return stage.fail("rest", "status",
                      "is another than half a minute ago: " + difference(status, now));
  const auto& qemus = stage.world.qemus.all();
  const bool isQuiet = std::all_of(qemus.begin(), qemus.end(),
                                   [](const auto& each) { return Truth::isGood(*each.second); });
  for (const auto& [path, bytes] : filesOf(stage))
    if (const auto found = files.find(path);
        isQuiet && (found == files.end() || found->second != bytes))
      return stage.fail("rest", path, "is written at rest");
  if (devicesOf(stage) != devices) return stage.fail("rest", "devices", "come or go at rest");
  if (isQuiet && processesOf(stage) != processes)
    return stage.fail("rest", "processes", "come, go, or open files at rest");
  checkAsked(stage);
  const uint64_t guests = stage.world.qemus.all().size();
  for (const auto& [pid, count] : callsOf(stage)) {
    const auto before = calls.find(pid);
    const auto process = stage.world.machine.processes.find(pid);
    const Qemu* const qemu = isShim(*process) ? stage.qemuOf(vmOf(*process)) : nullptr;
    if (qemu && qemu->manner().floods) continue;
    // Of one that does not answer cards are attached anew, and devices listed for that.
    const uint64_t most = isDaemon(*process) ? 100 + 200 * guests + (isQuiet ? 0 : 1500) : 400;
    if (before != calls.end() && count - before->second > most)
      return stage.fail("rest", nameOf(*process),
                        std::to_string(count - before->second) + " calls at rest");
  }
}

// What had ended by itself, or does not do what it is asked, is brought back.
void restartAll(Stage& stage) {
  stage.diary.step("what stands is restarted");
  for (const std::string& vm : stage.vms()) {
    const Qemu* const qemu = stage.qemuOf(vm);
    const bool runs = qemu && Truth::isGood(*qemu) && !stage.ledger.isLost(vm);
    if (stage.ledger.wanted(vm) == true && !runs && !stage.hasFailed()) {
      stage.ledger.askToEnd(vm, "it is restarted");
      const CommandEnd end = stage.vmctl({"restart", vm, "--force"});
      stage.ledger.askToEnd(vm, "it is restarted");
      stage.ledger.handleAsked(vm, end.began);
      if (end.status() != 0) stage.fail("command", vm, "cannot be restarted: " + end.output);
    }
  }
}

void removeAll(Stage& stage) {
  stage.diary.step("all is removed");
  const Rows status = statusOf(stage);
  std::set<std::string> vms;
  for (const std::string& vm : stage.vms()) vms.insert(vm);
  for (const auto& [key, document] : status)
    if (!memberOf(document, "unknown").empty()) vms.insert(key.substr(key.find('/') + 1));
  for (const std::string& vm : vms) {
    if (stage.hasFailed()) return;
    stage.ledger.askToEnd(vm, "it is removed");
    const CommandEnd end = stage.vmctl({"remove", vm, "--force"});
    stage.ledger.askToEnd(vm, "it is removed");
    if (end.status() != 0) stage.fail("command", vm, "cannot be removed: " + end.output);
  }
  stage.storeWasReplaced = false;
  stage.readRows();
}

}  // namespace

void finish(Stage& stage) {
  if (stage.hasFailed()) return;
  heal(stage);
  if (stage.hasFailed()) return;
  Truth truth(stage.world, stage.ledger, stage.rows());
  truth.mayBeUnknown = stage.storeWasReplaced;
  // The agent waits for the node of each tap in its turn.
  const Duration nodes = stage.watch.longestAbsence == never ? 60s : 0s;
  become(stage, untilTrue + nodes, [&](const Rows& status) { return truth.firstLie(status); });
  const auto look = [&](const Rows& status) {
    const auto found = truth.firstLie(status);
    return found ? found : truth.firstFault(status);
  };
  // A guest that is to end may take its time.
  stage.world.pass(30s);
  become(stage, untilAtRest, look);
  if (stage.hasFailed()) return;
  checkRest(stage);
  restartAll(stage);
  stage.world.pass(5s);
  become(stage, untilAtRest, look);
  removeAll(stage);
  truth.mayBeUnknown = false;
  become(stage, untilAtRest, [&](const Rows& status) { return truth.firstRemnant(status); });
  act(stage, "end-daemon");
}

}  // namespace sim
