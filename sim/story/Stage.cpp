#include "sim/story/Stage.h"

#include <algorithm>

#include "sim/oracle/Document.h"

namespace sim {

namespace {

using namespace std::chrono_literals;

constexpr unsigned portCount = 4;
constexpr Duration untilRunning = 30s;
const std::string configTable = "vmConfig/";

Act actOf(const Step& step) {
  for (const Acts* const acts : {&operatorActs(), &processActs(), &surroundingsActs()})
    if (const auto found = acts->find(step.word()); found != acts->end()) return found->second;
  return nullptr;
}

}  // namespace

bool Stage::keepsCalls = false;

Room::Room(Machine& machine) : machine_(machine) {
  for (const char* const path : {"/var/lib", "/run"}) {
    const dev_t device = machine.files.at(path)->device;
    rooms_[device] = std::exchange(machine.files.volume(device).room, SIZE_MAX);
  }
}

Room::~Room() {
  for (const auto& [device, room] : rooms_) machine_.files.volume(device).room = room;
}

Stage::Stage()
    : world(0),
      ledger([this] { return world.machine.now(); }),
      diary([this] { return world.machine.now(); }),
      watch(world, ledger, diary),
      weather(world, ledger, diary, watch) {
  world.qemus.mannerOf = [this](const std::string& vm) { return mannerOf(vm); };
  if (!keepsCalls) return;
  world.machine.gate.done.push_back(
      [this](const Process& process, const CallNote& note, Result result) {
        calls += secondsText(world.machine.now()) + " " + std::to_string(process.pid) + " " +
                 note.name + " (" + std::to_string(note.arguments) +
                 ") = " + std::to_string(result) + "\n";
      });
}

bool Stage::prepare(Beginning beginning) {
  for (unsigned port = 1; port <= portCount; ++port) plug("Ethernet" + std::to_string(port));
  startDaemon();
  if (!world.becomesReady()) return false;
  world.person.begin(world.machine);
  readRows();
  if (beginning == Beginning::empty) return true;
  for (const unsigned vm : {1U, 2U}) {
    Step step;
    step.kind = kindFromWord("add");
    step.subject = vm;
    step.amount = vm;
    play(step);
  }
  const auto run = [this] {
    return std::all_of(rows_.begin(), rows_.end(), [this](const auto& each) {
      if (!each.first.starts_with(configTable)) return true;
      const Qemu* const qemu = qemuOf(each.first.substr(configTable.size()));
      return qemu && qemu->guestRuns();
    });
  };
  if (!world.until(run, untilRunning)) return false;
  if (beginning == Beginning::running) return true;
  ledger.daemonMayEnd("it is killed");
  world.machine.processes.signal(*world.daemon(), {9, 0, 0});
  world.pass(1s);
  startDaemon();
  if (!world.becomesReady()) return false;
  world.pass(5s);
  return run();
}

void Stage::begin(const Story& story) {
  world.machine.choices.seedIs(story.seed);
  weather.conditionsAre(story.conditions);
}

void Stage::play(const Step& step) {
  world.pass(step.before);
  if (hasFailed()) return;
  const Act act = actOf(step);
  if (!act) return fail("story", std::string(step.word()), "nobody knows how to do that");
  diary.step(toText(step).substr(toText(step).find(' ') + 1));
  act(*this, step);
}

void Stage::fail(const std::string& clause, const std::string& about, const std::string& text) {
  if (hasFailed()) return;
  diary.effect("WRONG (" + clause + "): " + about + ": " + text);
  world.machine.fail(clause, about, text);
}

// Most commands are given to one that lives on, for it is ten times as fast.
bool Stage::needsProgram(const std::vector<std::string>& words) {
  constexpr uint64_t programs = 16;
  return storeIsAway || words.front() == "wait" ||
         world.machine.choices.stream("programs").oneIn(programs);
}

CommandEnd Stage::vmctl(const std::vector<std::string>& words, Duration time) {
  std::vector<std::string> all = {"vmctl"};
  all.insert(all.end(), words.begin(), words.end());
  const CommandEnd end = needsProgram(words) ? runCommand(world.machine, commandPath, all, time)
                                             : world.person.vmctl(all, time);
  std::string text;
  for (const std::string& each : all) text += each + " ";
  diary.effect(text + "-> " + std::to_string(end.status()) +
               (end.status() == 0 ? "" : ": " + end.output.substr(0, end.output.find('\n'))));
  if (!end.inTime && !hasFailed()) fail("command", text, "does not end");
  return end;
}

CommandEnd Stage::change(const std::string& vm, const std::vector<std::string>& words,
                         const IsRight& isRight) {
  const Rows before = rows_;
  commandBegan_ = world.machine.now();
  ledger.touch(vm);
  if (storeIsAway) ledger.mayEnd(vm, "another configuration says so");
  const CommandEnd end = vmctl(words);
  if (!readRows()) return end;
  checkChange(vm, end, before, isRight);
  const auto was = before.find(configTable + vm);
  const bool isChanged = was == before.end() || was->second != row(vm);
  if (isChanged && !row(vm).empty()) valid_[vm] = row(vm);
  judge(vm, end.began);
  return end;
}

void Stage::handleEnding(const std::string& vm, const std::string& why, std::optional<Time> began) {
  if (storeIsAway) return ledger.mayEnd(vm, why);
  ledger.askToEnd(vm, why);
  if (began) ledger.handleAsked(vm, *began);
}

void Stage::checkChange(const std::string& vm, const CommandEnd& end, const Rows& before,
                        const IsRight& isRight) {
  const std::string its = configTable + vm;
  const auto get = [](const Rows& rows, const std::string& key) {
    const auto found = rows.find(key);
    return found == rows.end() ? std::string() : found->second;
  };
  for (const Rows& each : {before, rows_})
    for (const auto& [key, document] : each)
      if (!key.ends_with("/" + vm) && get(before, key) != get(rows_, key))
        return fail("configuration", key,
                    "was '" + get(before, key) + "', is '" + get(rows_, key) + "' though it was " +
                        vm + " that was to be changed");
  const std::string was = get(before, its);
  const std::string is = get(rows_, its);
  const bool isAsBefore = was == is;
  // Where the databases failed, or somebody did not answer, it may have been before the commit or
  // behind it.
  constexpr int unusable = 6;
  constexpr int unanswered = 7;
  const bool isUncertain = end.status() == unusable || end.status() == unanswered;
  const bool mayBe = end.status() == 0 ? isRight(was, is)
                     : isUncertain     ? isAsBefore || isRight(was, is)
                                       : isAsBefore;
  if (!mayBe)
    fail("configuration", vm,
         "vmctl ended with " + std::to_string(end.status()) + ", and '" + was + "' is now '" + is +
             "'");
}

bool Stage::readRows() {
  if (storeIsAway || hasFailed()) return false;
  auto read = world.person.readRows({"vmConfig", "vmIntent", "interface"});
  if (!read) return false;
  rows_ = std::move(*read);
  std::vector<std::string> known;
  for (const auto& [vm, document] : valid_) known.push_back(vm);
  for (const std::string& vm : known) judge(vm, commandBegan_);
  return true;
}

// What its row says now.
void Stage::judge(const std::string& vm, Time began) {
  const std::string document = row(vm);
  if (document.empty()) {
    valid_.erase(vm);
    ledger.wantedIs(vm, storeWasReplaced ? std::nullopt : std::optional(false), began);
    return;
  }
  const auto found = valid_.find(vm);
  if (found == valid_.end() || found->second != document) {
    valid_.erase(vm);
    ledger.wantedIs(vm, std::nullopt, began);
    return;
  }
  ledger.wantedIs(vm, memberOf(document, "enabled") == "true", began);
}

std::string Stage::row(const std::string& vm) const {
  const auto found = rows_.find(configTable + vm);
  return found == rows_.end() ? "" : found->second;
}

std::vector<std::string> Stage::vms() const {
  std::vector<std::string> all;
  for (const auto& [key, document] : rows_)
    if (key.starts_with(configTable)) all.push_back(key.substr(configTable.size()));
  return all;
}

void Stage::startDaemon() {
  if (world.daemon()) return;
  if (!world.daemonIsGone()) ledger.daemonMayEnd("the one before has not gone yet");
  ledger.touchAll();
  ledger.handleAskedAll();
  watch.forgiveAbsence();
  world.startDaemon();
}

void Stage::plug(const std::string& port) {
  if (world.machine.network.find(port)) return;
  world.plug(port);
  touchPort(port);
}

void Stage::touchPort(const std::string& port) {
  for (const std::string& vm : vms())
    for (const CardRow& card : cardsOf(row(vm)))
      if (card.device == port) ledger.touch(vm);
}

const Qemu* Stage::qemuOf(const std::string& vm) const {
  const auto found = world.qemus.of(vm);
  return found.empty() ? nullptr : found.front();
}

std::string Stage::macOf(const std::string& vm, unsigned card) {
  return "52:54:00:00:0" + vm.substr(2) + ":0" + std::to_string(card);
}

QemuManner Stage::mannerOf(const std::string& vm) {
  const auto found = nextManners.find(vm);
  if (found == nextManners.end()) return {};
  ledger.mayEnd(vm, "its QEMU is a strange one");
  return found->second;
}

}  // namespace sim
