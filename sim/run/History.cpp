#include "sim/run/History.h"

#include <sstream>

#include "sim/story/Ending.h"

namespace sim {

namespace {

// Each text begins with its size.
void put(std::ostream& to, const std::string& text) { to << text.size() << ' ' << text; }

std::string take(std::istream& from) {
  size_t size = 0;
  from >> size;
  from.get();
  std::string text(size, '\0');
  from.read(text.data(), static_cast<std::streamsize>(size));
  return text;
}

std::string recordsOf(Stage& stage) {
  std::string all = "--- the daemon's log\n" + stage.world.log();
  const InodePtr vms = stage.world.machine.files.at("/run/vmagent/vm");
  if (vms)
    for (const auto& [vm, directory] : vms->children)
      for (const char* const name : {"shim.log", "last-error", "problem"})
        if (const InodePtr file = directory->child(name); file && file->isRegular())
          all += "--- " + vm + "/" + name + "\n" + file->bytes;
  for (const auto& [pid, qemu] : stage.world.qemus.all()) {
    all += "--- what QEMU of " + qemu->vm() + " (" + std::to_string(pid) + ") was asked last\n";
    for (const std::string& each : qemu->asked()) all += each + "\n";
  }
  all += "--- configuration\n";
  for (const auto& [key, document] : stage.rows()) all += key + " " + document + "\n";
  all += "--- status, as it was read last\n";
  for (const auto& [key, document] : stage.lastStatus) all += key + " " + document + "\n";
  all += "--- devices\n";
  for (const auto& [index, link] : stage.world.machine.network.links())
    all += std::to_string(index) + " " + link.name + " " + link.kind + "\n";
  return all;
}

}  // namespace

std::string toText(const Outcome& outcome) {
  std::ostringstream text;
  put(text, outcome.verdict.clause);
  put(text, outcome.verdict.about);
  put(text, outcome.verdict.text);
  text << outcome.digest << ' ' << outcome.calls << ' ' << outcome.passed.count() << ' '
       << outcome.work.count() << ' ' << outcome.memory << ' ';
  put(text, outcome.diary);
  put(text, outcome.records);
  return text.str();
}

Outcome outcomeFromText(const std::string& text) {
  std::istringstream from(text);
  Outcome outcome;
  outcome.verdict.clause = take(from);
  outcome.verdict.about = take(from);
  outcome.verdict.text = take(from);
  Duration::rep passed = 0;
  Duration::rep work = 0;
  from >> outcome.digest >> outcome.calls >> passed >> work >> outcome.memory;
  outcome.passed = Duration(passed);
  outcome.work = Duration(work);
  outcome.diary = take(from);
  outcome.records = take(from);
  return outcome;
}

Outcome play(Stage& stage, const Story& story) {
  const Time from = stage.world.machine.now();
  stage.begin(story);
  for (const Step& each : story.steps) {
    if (stage.hasFailed()) break;
    stage.play(each);
  }
  finish(stage);
  Outcome outcome;
  outcome.verdict = stage.world.machine.verdict;
  outcome.digest = stage.world.machine.gate.digest();
  outcome.calls = stage.world.machine.gate.count();
  outcome.passed = stage.world.machine.now() - from;
  if (outcome.failed() || Stage::keepsCalls) {
    outcome.diary = stage.diary.text();
    outcome.records = recordsOf(stage) + stage.calls;
  }
  return outcome;
}

}  // namespace sim
