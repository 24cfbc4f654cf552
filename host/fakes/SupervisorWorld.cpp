#include "host/fakes/SupervisorWorld.h"

#include <algorithm>

#include "runtime/base/Format.h"
#include "runtime/base/Trace.h"

namespace host::fakes {

rt::String Row::doc() const {
  return rt::format(R"({"enabled":%s,"diskImage":"%s","memory":%d,"vncPort":%d})",
                    enabled ? "true" : "false", diskImage.charPtr(), memory, vncPort);
}

void FakeCards::tell(const char* what, const rt::String& vm) {
  const auto record = status_->vmStatus(vm);
  told_.push_back(what + vm.str() +
                  (!record             ? " is gone"
                   : record->enabled() ? " is on"
                                       : " is off"));
}

SupervisorWorld::SupervisorWorld(std::map<rt::String, uint64_t> restartsDone,
                                 rt::Seconds stopPatience)
    : states(rt::make<VmStates>(
          hostStatus,
          VmStates::Times{
              .ofDay = [this] { return static_cast<uint64_t>(clock->now().value() * 1000); },
              .sinceBoot = [this] { return static_cast<uint64_t>(clock->now().value() * 1000); }},
          std::map<rt::String, VmStates::Before>{},
          VmStates::Others{.catchUp = [this](const rt::String& vm) { shims.catchUp(vm); },
                           .tell =
                               [this](const model::Event::Ptr& event) {
                                 told.push_back(event->kind().str() + " " + event->reason().str());
                               }},
          clock)),
      tools{.agent = agent,
            .config = config,
            .status = status,
            .hostStatus = hostStatus,
            .problems = problems,
            .traces = traceLog,
            .cards = cards,
            .shims = shims,
            .states = *states,
            .images = images,
            .own = own,
            .budget = budget,
            .start = aroundStart,
            .processes = processes,
            .waiting = waiting,
            .going = going,
            .order = order,
            .stopPatience = stopPatience},
      supervisor(rt::make<VmSupervisor>(tools, std::move(restartsDone), clock)) {
  problems.listenerIs([this](const rt::String& vm, const rt::String& text, ProblemSource source) {
    states->problemIs(vm, text, source);
  });
}

void FakeCards::tookUp(const rt::String& vm) {
  if (takingUp) takingUp(vm);
  effects_.push_back("took up " + vm.str());
  VM_TRACE(1) << "a device is left over and is deleted";
}

void FakeCards::guestLeaves(const rt::String& vm, int32_t pid) {
  noted.push_back(pid);
  leaving[vm].insert(pid);
}

rt::String FakeImages::format(const rt::String& vm, const rt::String& /*path*/) const {
  const auto found = formats.find(vm);
  return found == formats.end() ? rt::String() : found->second;
}

ImageVerdict FakeImages::judge(const ImageQuestion& question) {
  questions.push_back(question);
  if (unseen.contains(question.path)) return {.kind = ImageVerdict::Kind::awaited};
  if (missing.contains(question.path))
    return {
        .kind = ImageVerdict::Kind::refused,
        .problem = rt::Problem{"diskImage", question.path, "must be a file that is there"}.text()};
  held[question.vm] = question.path;
  return {.note = note, .format = "qcow2"};
}

statedb::Change SupervisorWorld::put(const rt::String& vm, const rt::String& doc) {
  ++revision_;
  const uint64_t created = created_.try_emplace(vm, revision_).first->second;
  return {statedb::Op::put, {"vmConfig", vm, doc, revision_, created}};
}

statedb::Change SupervisorWorld::putNew(const rt::String& vm, const rt::String& doc) {
  created_.erase(vm);
  return put(vm, doc);
}

statedb::Change SupervisorWorld::del(const rt::String& vm) {
  return {statedb::Op::del, {"vmConfig", vm, {}, 0, 0}};
}

statedb::Change SupervisorWorld::found(statedb::Change change) {
  change.proof = statedb::Proof::comparison;
  return change;
}

void SupervisorWorld::apply(const std::vector<statedb::Change>& changes,
                            const rt::String& history) {
  for (const rt::String& vm : rows.apply(changes, history)) supervisor->rowIs(vm, rows.row(vm));
}

void SupervisorWorld::rowIs(const rt::String& vm, const Row& row) {
  apply({put(vm, row.doc())});
  settle();
}

void SupervisorWorld::rowDel(const rt::String& vm) {
  created_.erase(vm);
  apply({del(vm)});
  settle();
}

void SupervisorWorld::restartIs(const rt::String& vm, uint64_t number, bool ifEnded) {
  supervisor->restartIs(vm, number, ifEnded);
  settle();
}

void SupervisorWorld::settle() {
  for (int passes = 0; supervisor->pass(); ++passes)
    if (passes == 100000) throw rt::Exception("there is always more to do at once");
}

void SupervisorWorld::advance(double seconds) {
  const rt::Seconds target = clock->now() + rt::Seconds(seconds);
  while (clock->nextWakeUpTime() <= target) {
    clock->nowIs(std::max(clock->now(), clock->nextWakeUpTime()));
    manager.turn(rt::Seconds(0));
    settle();
  }
  clock->nowIs(target);
  settle();
}

void SupervisorWorld::exits(const rt::String& vm) {
  auto& all = fortune.processes;
  const auto found = std::find_if(all.begin(), all.end(),
                                  [&](const FakeProcess::Ptr& each) { return each->vm() == vm; });
  if (found == all.end()) throw rt::Exception("VM " + vm + " has no process");
  const FakeProcess::Ptr process = *found;
  all.erase(found);
  process->statusIs("exited");
}

void SupervisorWorld::end(const rt::String& vm) {
  exits(vm);
  settle();
}

std::string SupervisorWorld::process(const rt::String& vm) const {
  const auto record = hostStatus->vmProcess(vm);
  if (!record || (record->process() == "none" && record->restarts() == 0)) return "";
  return record->process().str() + " " + std::to_string(record->pid());
}

std::string SupervisorWorld::problem(const rt::String& vm) const {
  const auto record = hostStatus->vmProblem(vm);
  return record ? record->source().str() + ": " + record->problem().str() : "";
}

}  // namespace host::fakes
