#include "sim/oracle/Watch.h"

#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <set>

namespace sim {

namespace {

// Until a daemon that is there has heard of a change.
constexpr Duration untilHeard = std::chrono::seconds(5);
// Until what was disturbed is in order again.
constexpr Duration untilCalm = std::chrono::seconds(3);

// From a guest's end to that of its shims.
constexpr Duration untilShimsEnd = std::chrono::seconds(1);

bool isWait(const char* call) {
  return std::strncmp(call, "epoll_", 6) == 0 || std::strcmp(call, "poll") == 0;
}

bool isCrash(int waitStatus) {
  if (!WIFSIGNALED(waitStatus)) return false;
  const int number = WTERMSIG(waitStatus);
  return number == SIGABRT || number == SIGFPE || number == SIGILL || number == SIGBUS;
}

}  // namespace

Watch::Watch(World& world, Ledger& ledger, Diary& diary)
    : world_(world), ledger_(ledger), diary_(diary) {
  world.qemus.added = [this](pid_t pid, const Qemu& qemu) { handleQemu(pid, qemu); };
  world.qemus.bared = [this](const std::string& vm, const std::string& card) {
    fail("carrier", vm, "its card " + card + " loses its carrier while its guest runs");
  };
  world.machine.processes.ending.push_back(
      [this](const Process& process, int waitStatus) { handleEnd(process, waitStatus); });
  world.machine.network.removing = [this](const Link& link) { handleRemoval(link); };
  world.machine.processes.signaling = [this](const Process& target, int number) {
    handleSignal(target, number);
  };
  world.machine.gate.done.push_back([this](const Process& process, const CallNote& note,
                                           Result result) { leave(process, note, result); });
}

void Watch::fail(const std::string& clause, const std::string& about, const std::string& text) {
  diary_.effect("WRONG (" + clause + "): " + about + ": " + text);
  world_.machine.fail(clause, about, text);
}

void Watch::handleQemu(pid_t pid, const Qemu& qemu) {
  const std::string& vm = qemu.vm();
  diary_.effect("QEMU of " + vm + " (" + std::to_string(pid) + ") begins");
  for (const auto& [other, guest] : guests_) {
    if (guest.vm == vm)
      fail("one-qemu", vm, "a second QEMU of it begins beside " + std::to_string(other));
    if (guest.disk == qemu.disk())
      fail("one-qemu", vm, "its disk is that of " + guest.vm + "'s QEMU");
  }
  // It may have stood still before it began.
  const Time began = world_.machine.processes.find(pid)->started;
  Guest& guest = guests_[pid] = {vm, began, qemu.disk(), {}};
  for (const auto& [id, card] : qemu.devices().cards()) guest.macs.push_back(card.mac);
  const auto wanted = ledger_.wanted(vm);
  const bool wasHeard = world_.machine.now() - ledger_.wantedSince(vm) > untilHeard &&
                        ledger_.calmFor(vm) > untilHeard;
  if (wanted == false && wasHeard) fail("unasked-start", vm, "it begins though its VM is off");
}

void Watch::handleEnd(const Process& process, int waitStatus) {
  if (isCommand(process)) {
    if (isCrash(waitStatus)) fail("abort", "vmctl", endText(waitStatus));
    return;
  }
  if (isOurs(process) || isQemu(process))
    diary_.effect(nameOf(process) + " " + endText(waitStatus));
  if (isOurs(process) && isCrash(waitStatus)) {
    fail("abort", nameOf(process), endText(waitStatus));
    return;
  }
  if (const auto guest = guests_.find(process.pid); guest != guests_.end()) {
    const Guest its = guest->second;
    guests_.erase(guest);
    // Nor does a guest hold what it could not open.
    if (!world_.daemon() || longestAbsence == never)
      for (const std::string& mac : its.macs) ledger_.handleOrphan(mac);
    handleGuestsEnd(its, waitStatus);
    return;
  }
  if (isQemu(process) && WIFEXITED(waitStatus) && WEXITSTATUS(waitStatus) == 1)
    ledger_.lastWordIs(vmOf(process), QemuManner::refusal);
  if (isShim(process)) handleShimsEnd(process, waitStatus);
  if (&process != world_.daemon()) return;
  ledger_.touchAll();
  forgiveAbsence();
  noteOrphans();
  if (!ledger_.causeOfDaemonsEnd()) fail("daemon-end", "vmagentd", endText(waitStatus));
}

// Devices that the daemon has made, and no guest has.
void Watch::noteOrphans() {
  std::set<const Link*> held;
  for (const auto& [pid, qemu] : world_.qemus.all())
    for (const Link* const tap : qemu->devices().taps()) held.insert(tap);
  for (const auto& [index, link] : world_.machine.network.links())
    if (link.isTap() && !held.contains(&link)) ledger_.handleOrphan(textOf(link.mac));
}

void Watch::handleGuestsEnd(const Guest& guest, int waitStatus) {
  const auto cause = ledger_.causeOfEnd(guest.vm, guest.began);
  if (!cause) return fail("unasked-end", guest.vm, "its QEMU " + endText(waitStatus));
  ends_[guest.vm] = {world_.machine.now(), *cause};
  if (!ledger_.wasAskedToEnd(guest.vm, guest.began))
    ledger_.handleEnd(guest.vm, *cause, waitStatus != 0);
}

// Whether the keeper of the VM's guest, which was there before it, has written down that it stands
// in.
bool Watch::wasGivenIts(const Process& standIn, const std::string& vm) const {
  const auto qemus = world_.qemus.of(vm);
  if (qemus.empty() || qemus.front()->started() > standIn.started) return true;
  const InodePtr log = world_.machine.files.at("/run/vmagent/vm/" + vm + "/shim.log");
  const std::string words = "at which process " + std::to_string(standIn.pid) + " stands in";
  return log && log->bytes.find(words) != std::string::npos;
}

void Watch::handleShimsEnd(const Process& process, int waitStatus) {
  if (!process.parent || !isDaemon(*process.parent) || !process.parent->lives()) return;
  const std::string vm = vmOf(process);
  if (waitStatus != 0 && !wasGivenIts(process, vm)) ledger_.handleLost(vm);
  auto cause = ledger_.causeOfEnd(vm, process.started);
  if (!cause) cause = ledger_.troubleOf(vm);
  // One that stands in ends as its guest did.
  if (const auto end = ends_.find(vm);
      !cause && end != ends_.end() && world_.machine.now() - end->second.first < untilShimsEnd)
    cause = end->second.second;
  if (waitStatus != 0 && !cause) return fail("shim-end", vm, "its shim " + endText(waitStatus));
  if (!ledger_.wasAskedToEnd(vm, process.started))
    ledger_.handleEnd(vm, cause.value_or("its shim " + endText(waitStatus)), waitStatus != 0);
}

void Watch::handleRemoval(const Link& link) {
  const Process* const remover = world_.machine.scheduler.current();
  if (!remover || !isOurs(*remover)) return;
  diary_.effect(nameOf(*remover) + " removes " + link.name);
  for (const auto& [pid, process] : world_.qemus.all()) {
    const Qemu* const qemu = process;
    const auto taps = qemu->devices().taps();
    if (std::find(taps.begin(), taps.end(), &link) == taps.end()) continue;
    const auto& cards = qemu->devices().cards();
    const bool isInUse = std::any_of(cards.begin(), cards.end(), [&](const auto& card) {
      return card.second.mac == textOf(link.mac) && qemu->devices().isConnected(card.first);
    });
    const auto guest = guests_.find(pid);
    if (guest == guests_.end() || ledger_.wasAskedToEnd(qemu->vm(), guest->second.began)) continue;
    // A daemon that takes a guest up gives it devices of its own.
    const auto isKept = [&](const Process* shim) {
      return shim->parent == world_.daemon() && world_.machine.now() - shim->started > untilCalm;
    };
    const auto shims = shimsOf(world_, qemu->vm());
    if (isInUse && ledger_.wanted(qemu->vm()) == true && ledger_.calmFor(qemu->vm()) > untilCalm &&
        std::any_of(shims.begin(), shims.end(), isKept))
      fail("device", qemu->vm(), link.name + " is removed under its guest, which was left alone");
  }
}

void Watch::handleSignal(const Process& target, int number) {
  const Process* const sender = world_.machine.scheduler.current();
  if (!sender || !isOurs(*sender) || sender == &target || number == SIGCHLD) return;
  diary_.effect(nameOf(*sender) + " sends " + nameOf(target) + " signal " + std::to_string(number));
  const bool isItsChild = target.parent == sender;
  const bool isGuests = isShim(target) || isQemu(target);
  const bool isOfSameVm = !isShim(*sender) || vmOf(*sender) == vmOf(target);
  if (!isItsChild && (!isGuests || !isOfSameVm))
    fail("signal", nameOf(target),
         "gets signal " + std::to_string(number) + " of " + nameOf(*sender));
}

void Watch::enter(const Process& process, const CallNote& note) {
  if (&process != world_.daemon() || backSince_ == never || !isWait(note.name)) return;
  const Duration absence = world_.machine.now() - backSince_;
  backSince_ = never;
  if (absence > longestAbsence && world_.machine.now() > forgivesUntil_)
    fail("stands", "vmagentd", "was away from its loop for " + secondsText(absence) + " s");
}

void Watch::leave(const Process& process, const CallNote& note, Result result) {
  if (result == -EBADF && note.first >= 0 && isOurs(process) &&
      std::strcmp(note.name, "close") == 0)
    fail("close", nameOf(process),
         "closes descriptor " + std::to_string(note.first) + ", which is not open");
  if (&process == world_.daemon() && isWait(note.name)) backSince_ = world_.machine.now();
}

}  // namespace sim
