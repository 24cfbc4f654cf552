// What is done to daemons, shims, QEMUs and guests.
#include <csignal>

#include "sim/story/Stage.h"

namespace sim {

namespace {

using namespace std::chrono_literals;

void kill(Stage& stage, Process& process, int number) {
  stage.diary.effect(nameOf(process) + " gets signal " + std::to_string(number));
  stage.world.machine.processes.signal(process, {number, 0, 0});
}

// Stands for a while.
void pause(Stage& stage, Process& process, Duration time) {
  stage.watch.forgiveAbsence();
  kill(stage, process, SIGSTOP);
  const std::weak_ptr<Process> weak = stage.world.machine.processes.sharedOf(process);
  stage.world.machine.scheduler.after(time, [&stage, weak] {
    const auto alive = weak.lock();
    if (!alive || !alive->lives()) return;
    stage.ledger.touchAll();
    stage.world.machine.processes.signal(*alive, {SIGCONT, 0, 0});
  });
}

void killDaemon(Stage& stage, const Step& /*step*/) {
  if (!stage.world.daemon()) return;
  stage.ledger.daemonMayEnd("it is killed");
  kill(stage, *stage.world.daemon(), SIGKILL);
}

void killDaemonSoon(Stage& stage, const Step& step) {
  const auto isIt = [&stage](const Process& process) { return &process == stage.world.daemon(); };
  stage.weather.killAt(step.amount, isIt);
}

void failDaemonSoon(Stage& stage, const Step& step) {
  const auto isIt = [&stage](const Process& process) { return &process == stage.world.daemon(); };
  stage.weather.failAt(step.amount, isIt);
}

void endDaemon(Stage& stage, const Step& /*step*/) {
  Process* const daemon = stage.world.daemon();
  if (!daemon) return;
  stage.ledger.daemonMayEnd("it is told to end");
  kill(stage, *daemon, SIGTERM);
  kill(stage, *daemon, SIGCONT);
  // It may wait for the nodes of taps.
  const Duration longest = stage.watch.longestAbsence == never ? 200s : 10s;
  stage.world.until([&] { return !stage.world.daemon() || stage.hasFailed(); }, longest);
  if (stage.world.daemon()) stage.fail("daemon-end", "vmagentd", "does not end by SIGTERM");
}

void startDaemon(Stage& stage, const Step& /*step*/) { stage.startDaemon(); }

void pauseDaemon(Stage& stage, const Step& step) {
  if (!stage.world.daemon()) return;
  stage.ledger.touchAll();
  pause(stage, *stage.world.daemon(), std::chrono::milliseconds(step.amount));
}

// One that is started beside another has to say so, and nothing else.
void secondDaemon(Stage& stage, const Step& /*step*/) {
  if (!stage.world.daemon() || stage.world.log().find("vmagentd: ready") == std::string::npos)
    return;
  const CommandEnd end = runCommand(stage.world.machine, daemonPath,
                                    {"vmagentd", "--shim", shimPath, "--accel", "tcg"}, 20s);
  constexpr int anotherRuns = 4;
  if (stage.world.daemon() && end.status() != anotherRuns && !stage.ledger.causeOfDaemonsEnd())
    stage.fail("daemon-end", "the second vmagentd",
               "ended with " + std::to_string(end.status()) + ": " + end.output);
}

// Its guest's sockets may stay until the next start.
void leaveSockets(Stage& stage, const std::string& vm) {
  const std::string its = "/run/vmagent/vm/" + vm;
  for (const std::string& path :
       {"/run/" + vm + ".monitor", its + "/shim.sock", its + "/console.sock"})
    stage.ledger.handleOrphan(path);
}

void signalShims(Stage& stage, const Step& step, int number) {
  auto shims = shimsOf(stage.world, subjectOf(step));
  if (shims.empty()) return;
  if (step.amount == 0) shims.resize(1);
  if (step.amount == 1) shims = {shims.back()};
  stage.ledger.handleOrphan(subjectOf(step) + ".monitor");
  // Where both are killed, or the daemon does not know the VM, nobody removes them.
  if (stage.storeIsAway || step.amount == 2) leaveSockets(stage, subjectOf(step));
  stage.ledger.mayEnd(subjectOf(step), "its shim gets signal " + std::to_string(number));
  for (Process* const each : shims)
    if (each->lives()) kill(stage, *each, number);
}

void killShim(Stage& stage, const Step& step) { signalShims(stage, step, SIGKILL); }
void endShim(Stage& stage, const Step& step) {
  signalShims(stage, step, step.subject % 2 == 0 ? SIGTERM : SIGHUP);
}

void killShimSoon(Stage& stage, const Step& step) {
  const auto isOne = [vm = subjectOf(step)](const Process& process) {
    return isShim(process) && vmOf(process) == vm;
  };
  stage.weather.killAt(step.amount, isOne);
}

void failShimSoon(Stage& stage, const Step& step) {
  const auto isOne = [vm = subjectOf(step)](const Process& process) {
    return isShim(process) && vmOf(process) == vm;
  };
  stage.weather.failAt(step.amount, isOne);
}

void pauseShim(Stage& stage, const Step& step) {
  // One that is to stand in for it gives up after four seconds.
  constexpr uint64_t patience = 3500;
  if (step.amount > patience) stage.ledger.mayEnd(subjectOf(step), "its shim stands still");
  stage.ledger.touch(subjectOf(step));
  for (Process* const each : shimsOf(stage.world, subjectOf(step)))
    pause(stage, *each, std::chrono::milliseconds(step.amount));
}

// The one that stands in must not hide that the other is gone.
void pauseAndKill(Stage& stage, const Step& step) {
  const auto shims = shimsOf(stage.world, subjectOf(step));
  if (shims.size() < 2) return;
  const bool first = step.amount % 2 == 0;
  // Its daemon thinks it gone: if it is killed, too, nobody removes its sockets.
  leaveSockets(stage, subjectOf(step));
  pause(stage, first ? *shims.back() : *shims.front(), std::chrono::milliseconds(step.amount));
  stage.ledger.mayEnd(subjectOf(step), "its shim is killed");
  kill(stage, first ? *shims.front() : *shims.back(), SIGKILL);
}

void signalQemu(Stage& stage, const Step& step, int number) {
  for (Process* const each : qemusOf(stage.world, subjectOf(step))) {
    stage.ledger.mayEnd(subjectOf(step), "its QEMU gets signal " + std::to_string(number));
    kill(stage, *each, number);
  }
}

void killQemu(Stage& stage, const Step& step) {
  signalQemu(stage, step, step.amount == 0 ? SIGKILL : SIGSEGV);
}
void endQemu(Stage& stage, const Step& step) { signalQemu(stage, step, SIGTERM); }

void pauseQemu(Stage& stage, const Step& step) {
  const Qemu* const qemu = stage.qemuOf(subjectOf(step));
  // One that has not greeted yet is not waited for that long.
  if (qemu && !qemu->guestRuns()) stage.ledger.mayEnd(subjectOf(step), "its QEMU stands still");
  stage.ledger.touch(subjectOf(step));
  for (Process* const each : qemusOf(stage.world, subjectOf(step)))
    pause(stage, *each, std::chrono::milliseconds(step.amount));
}

using Change = void (*)(QemuManner& manner);

void answersAre(QemuManner& manner, QemuManner::Answers answers, unsigned after) {
  manner.answers = answers;
  manner.goodAnswers = after;
}

constexpr Change manners[] = {
    [](QemuManner& /*manner*/) {},
    [](QemuManner& manner) { manner.endsAtOnceWith = 1; },
    [](QemuManner& manner) { manner.endsAtOnceWith = 0; },
    [](QemuManner& manner) { manner.untilGreeting = never; },
    [](QemuManner& manner) { manner.untilGreeting = 5s; },
    [](QemuManner& manner) { answersAre(manner, QemuManner::Answers::none, 6); },
    [](QemuManner& manner) { answersAre(manner, QemuManner::Answers::halves, 0); },
    [](QemuManner& manner) { answersAre(manner, QemuManner::Answers::errors, 4); },
    [](QemuManner& manner) { answersAre(manner, QemuManner::Answers::othersIds, 5); },
    [](QemuManner& manner) { answersAre(manner, QemuManner::Answers::rubbish, 5); },
    [](QemuManner& manner) { manner.storms = true; },
    [](QemuManner& manner) {
      manner.heedsTerm = manner.heedsQuit = false;
      manner.untilPowerOff.reset();
    },
    [](QemuManner& manner) { manner.untilAnswer = 3s; },
    [](QemuManner& manner) { manner.powersOffAfter = 10s; },
    [](QemuManner& manner) { manner.floods = true; },
};

void nextQemu(Stage& stage, const Step& step) {
  QemuManner manner;
  manners[step.amount % std::size(manners)](manner);
  if (step.amount == 0)
    stage.nextManners.erase(subjectOf(step));
  else
    stage.nextManners[subjectOf(step)] = manner;
}

Qemu* qemuOf(Stage& stage, const Step& step) {
  const auto qemus = qemusOf(stage.world, subjectOf(step));
  return qemus.empty() ? nullptr : stage.world.qemus.find(qemus.front()->pid);
}

void powerOff(Stage& stage, const Step& step) {
  stage.world.machine.scheduler.after(std::chrono::seconds(step.amount), [&stage, step] {
    Qemu* const qemu = qemuOf(stage, step);
    if (!qemu || !qemu->guestRuns()) return;
    stage.ledger.mayEnd(subjectOf(step), "its guest shuts down");
    qemu->powerOff();
  });
}

void deafGuest(Stage& stage, const Step& step) {
  Qemu* const qemu = qemuOf(stage, step);
  if (!qemu) return;
  qemu->manner().untilPowerOff.reset();
  if (step.amount == 1) qemu->manner().heedsTerm = qemu->manner().heedsQuit = false;
}

void turnClock(Stage& stage, const Step& step) {
  const auto by = std::chrono::seconds(step.amount);
  stage.world.machine.clock.jump(step.amount % 2 == 0 ? Duration(by) : -Duration(by));
}

}  // namespace

const Acts& processActs() {
  static const Acts acts = {{"kill-daemon", killDaemon},
                            {"kill-daemon-soon", killDaemonSoon},
                            {"fail-daemon-soon", failDaemonSoon},
                            {"end-daemon", endDaemon},
                            {"start-daemon", startDaemon},
                            {"pause-daemon", pauseDaemon},
                            {"second-daemon", secondDaemon},
                            {"kill-shim", killShim},
                            {"kill-shim-soon", killShimSoon},
                            {"fail-shim-soon", failShimSoon},
                            {"end-shim", endShim},
                            {"pause-shim", pauseShim},
                            {"pause-and-kill", pauseAndKill},
                            {"kill-qemu", killQemu},
                            {"end-qemu", endQemu},
                            {"pause-qemu", pauseQemu},
                            {"next-qemu", nextQemu},
                            {"power-off", powerOff},
                            {"deaf-guest", deafGuest},
                            {"turn-clock", turnClock}};
  return acts;
}

}  // namespace sim
