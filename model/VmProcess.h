// What is so of a VM, for operators.
#pragma once

#include "runtime/entity/EntityOf.h"

namespace model {

// A VM's process, as far as the host knows of one, written by the VM's keeper; and how the VM is,
// why, and what comes next, written by VmStates.
class VmProcess final : public rt::EntityOf<VmProcess> {
 public:
  explicit VmProcess(rt::String name) : name_(std::move(name)) {}

  const rt::String& name() const { return name_; }

  // "none", "running" or "ending".
  const rt::String& process() const { return process_; }
  void processIs(const rt::String& process) { assign<&VmProcess::process>(process_, process); }

  // The one that the agent has: the shim's that keeps the guest, or stands in where another keeps
  // it; without shims, QEMU's. 0: none.
  int32_t pid() const { return pid_; }
  void pidIs(int32_t pid) { assign<&VmProcess::pid>(pid_, pid); }

  // The number of the restart that was carried out last.
  uint64_t restarts() const { return restarts_; }
  void restartsIs(uint64_t number) { assign<&VmProcess::restarts>(restarts_, number); }

  // Of a guest whose VM is in no configuration: its name, by which an operator gives it up. Empty
  // for all others.
  const rt::String& unknown() const { return unknown_; }
  void unknownIs(const rt::String& guest) { assign<&VmProcess::unknown>(unknown_, guest); }

  // "running", "stopped", "gone": its row was removed and its guest has not ended yet, or
  // "unknown".
  const rt::String& wanted() const { return wanted_; }
  void wantedIs(const rt::String& value) { assign<&VmProcess::wanted>(wanted_, value); }

  // "stopped", "starting", "running", "paused", "stopping", "hung", "crashed", "retrying" or
  // "refused".
  const rt::String& actual() const { return actual_; }
  void actualIs(const rt::String& value) { assign<&VmProcess::actual>(actual_, value); }

  // "ok", "note", "busy" or "bad".
  const rt::String& severity() const { return severity_; }
  void severityIs(const rt::String& value) { assign<&VmProcess::severity>(severity_, value); }

  // Since when it is so, in seconds since 1970.
  uint64_t since() const { return since_; }
  void sinceIs(uint64_t value) { assign<&VmProcess::since>(since_, value); }

  // Why it is so, or what is wrong though it is: a word that stays the same, a clause, and the
  // clause in few words. Empty: there is nothing to say.
  const rt::String& reason() const { return reason_; }
  void reasonIs(const rt::String& value) { assign<&VmProcess::reason>(reason_, value); }
  const rt::String& why() const { return why_; }
  void whyIs(const rt::String& value) { assign<&VmProcess::why>(why_, value); }
  const rt::String& whyShort() const { return whyShort_; }
  void whyShortIs(const rt::String& value) { assign<&VmProcess::whyShort>(whyShort_, value); }
  // Of what of it, such as a card's key, and since when in seconds since 1970, where that is
  // another time than since(); empty and 0: of the VM, and since then.
  const rt::String& whySubject() const { return whySubject_; }
  void whySubjectIs(const rt::String& value) { assign<&VmProcess::whySubject>(whySubject_, value); }
  uint64_t whySince() const { return whySince_; }
  void whySinceIs(uint64_t value) { assign<&VmProcess::whySince>(whySince_, value); }

  // What comes next: "auto": by itself; "wait": when something else has happened; "command": when
  // somebody types nextCommand; "none". A clause, and it in a word; at nextAt, in seconds since
  // 1970; 0: nobody knows.
  const rt::String& nextKind() const { return nextKind_; }
  void nextKindIs(const rt::String& value) { assign<&VmProcess::nextKind>(nextKind_, value); }
  const rt::String& next() const { return next_; }
  void nextIs(const rt::String& value) { assign<&VmProcess::next>(next_, value); }
  const rt::String& nextShort() const { return nextShort_; }
  void nextShortIs(const rt::String& value) { assign<&VmProcess::nextShort>(nextShort_, value); }
  const rt::String& nextCommand() const { return nextCommand_; }
  void nextCommandIs(const rt::String& value) {
    assign<&VmProcess::nextCommand>(nextCommand_, value);
  }
  uint64_t nextAt() const { return nextAt_; }
  void nextAtIs(uint64_t value) { assign<&VmProcess::nextAt>(nextAt_, value); }

  // When a guest is switched off that was asked to end, in seconds since 1970; 0: none was.
  uint64_t stopDeadline() const { return stopDeadline_; }
  void stopDeadlineIs(uint64_t value) { assign<&VmProcess::stopDeadline>(stopDeadline_, value); }

  // How often its start was tried again since it ran last.
  uint64_t attempt() const { return attempt_; }
  void attemptIs(uint64_t value) { assign<&VmProcess::attempt>(attempt_, value); }

  // QEMU's own process, its version, when it was started (seconds since 1970), and how often the
  // guest was reset since. 0 and empty: nobody told.
  int32_t qemuPid() const { return qemuPid_; }
  void qemuPidIs(int32_t value) { assign<&VmProcess::qemuPid>(qemuPid_, value); }
  const rt::String& qemuVersion() const { return qemuVersion_; }
  void qemuVersionIs(const rt::String& value) {
    assign<&VmProcess::qemuVersion>(qemuVersion_, value);
  }
  uint64_t startedAt() const { return startedAt_; }
  void startedAtIs(uint64_t value) { assign<&VmProcess::startedAt>(startedAt_, value); }
  uint64_t resets() const { return resets_; }
  void resetsIs(uint64_t value) { assign<&VmProcess::resets>(resets_, value); }

  // How its last run ended: a word that stays the same, a clause, who did it, whether it was a
  // failure, when (seconds since 1970), and QEMU's exit status or the signal. Empty: it did not.
  const rt::String& endCause() const { return endCause_; }
  void endCauseIs(const rt::String& value) { assign<&VmProcess::endCause>(endCause_, value); }
  const rt::String& endText() const { return endText_; }
  void endTextIs(const rt::String& value) { assign<&VmProcess::endText>(endText_, value); }
  const rt::String& endBy() const { return endBy_; }
  void endByIs(const rt::String& value) { assign<&VmProcess::endBy>(endBy_, value); }
  bool endFailed() const { return endFailed_; }
  void endFailedIs(bool value) { assign<&VmProcess::endFailed>(endFailed_, value); }
  uint64_t endAt() const { return endAt_; }
  void endAtIs(uint64_t value) { assign<&VmProcess::endAt>(endAt_, value); }
  int32_t endExit() const { return endExit_; }
  void endExitIs(int32_t value) { assign<&VmProcess::endExit>(endExit_, value); }
  int32_t endSignal() const { return endSignal_; }
  void endSignalIs(int32_t value) { assign<&VmProcess::endSignal>(endSignal_, value); }

  // Since the machine was booted: how often it was started, and how often it ended for what, as
  // text of EndCounts. The newest runs that are counted there, so that none is twice.
  uint64_t starts() const { return starts_; }
  void startsIs(uint64_t count) { assign<&VmProcess::starts>(starts_, count); }
  const rt::String& ends() const { return ends_; }
  void endsIs(const rt::String& counts) { assign<&VmProcess::ends>(ends_, counts); }
  uint64_t startedRun() const { return startedRun_; }
  void startedRunIs(uint64_t run) { assign<&VmProcess::startedRun>(startedRun_, run); }
  uint64_t endedRun() const { return endedRun_; }
  void endedRunIs(uint64_t run) { assign<&VmProcess::endedRun>(endedRun_, run); }

  static constexpr std::string_view typeName = "model::VmProcess";
  using Attributes = rt::AttributeTable<
      rt::Attribute<"name", &VmProcess::name>,
      rt::Attribute<"process", &VmProcess::process, &VmProcess::processIs>,
      rt::Attribute<"pid", &VmProcess::pid, &VmProcess::pidIs>,
      rt::Attribute<"restarts", &VmProcess::restarts, &VmProcess::restartsIs>,
      rt::Attribute<"unknown", &VmProcess::unknown, &VmProcess::unknownIs>,
      rt::Attribute<"wanted", &VmProcess::wanted, &VmProcess::wantedIs>,
      rt::Attribute<"actual", &VmProcess::actual, &VmProcess::actualIs>,
      rt::Attribute<"severity", &VmProcess::severity, &VmProcess::severityIs>,
      rt::Attribute<"since", &VmProcess::since, &VmProcess::sinceIs>,
      rt::Attribute<"reason", &VmProcess::reason, &VmProcess::reasonIs>,
      rt::Attribute<"why", &VmProcess::why, &VmProcess::whyIs>,
      rt::Attribute<"whyShort", &VmProcess::whyShort, &VmProcess::whyShortIs>,
      rt::Attribute<"whySubject", &VmProcess::whySubject, &VmProcess::whySubjectIs>,
      rt::Attribute<"whySince", &VmProcess::whySince, &VmProcess::whySinceIs>,
      rt::Attribute<"nextKind", &VmProcess::nextKind, &VmProcess::nextKindIs>,
      rt::Attribute<"next", &VmProcess::next, &VmProcess::nextIs>,
      rt::Attribute<"nextShort", &VmProcess::nextShort, &VmProcess::nextShortIs>,
      rt::Attribute<"nextCommand", &VmProcess::nextCommand, &VmProcess::nextCommandIs>,
      rt::Attribute<"nextAt", &VmProcess::nextAt, &VmProcess::nextAtIs>,
      rt::Attribute<"stopDeadline", &VmProcess::stopDeadline, &VmProcess::stopDeadlineIs>,
      rt::Attribute<"attempt", &VmProcess::attempt, &VmProcess::attemptIs>,
      rt::Attribute<"qemuPid", &VmProcess::qemuPid, &VmProcess::qemuPidIs>,
      rt::Attribute<"qemuVersion", &VmProcess::qemuVersion, &VmProcess::qemuVersionIs>,
      rt::Attribute<"startedAt", &VmProcess::startedAt, &VmProcess::startedAtIs>,
      rt::Attribute<"resets", &VmProcess::resets, &VmProcess::resetsIs>,
      rt::Attribute<"endCause", &VmProcess::endCause, &VmProcess::endCauseIs>,
      rt::Attribute<"endText", &VmProcess::endText, &VmProcess::endTextIs>,
      rt::Attribute<"endBy", &VmProcess::endBy, &VmProcess::endByIs>,
      rt::Attribute<"endFailed", &VmProcess::endFailed, &VmProcess::endFailedIs>,
      rt::Attribute<"endAt", &VmProcess::endAt, &VmProcess::endAtIs>,
      rt::Attribute<"endExit", &VmProcess::endExit, &VmProcess::endExitIs>,
      rt::Attribute<"endSignal", &VmProcess::endSignal, &VmProcess::endSignalIs>,
      rt::Attribute<"starts", &VmProcess::starts, &VmProcess::startsIs>,
      rt::Attribute<"ends", &VmProcess::ends, &VmProcess::endsIs>,
      rt::Attribute<"startedRun", &VmProcess::startedRun, &VmProcess::startedRunIs>,
      rt::Attribute<"endedRun", &VmProcess::endedRun, &VmProcess::endedRunIs>>;

 private:
  const rt::String name_;
  rt::String process_ = "none";
  int32_t pid_ = 0;
  uint64_t restarts_ = 0;
  rt::String unknown_;
  rt::String wanted_;
  rt::String actual_;
  rt::String severity_;
  uint64_t since_ = 0;
  rt::String reason_;
  rt::String why_;
  rt::String whyShort_;
  rt::String whySubject_;
  uint64_t whySince_ = 0;
  rt::String nextKind_;
  rt::String next_;
  rt::String nextShort_;
  rt::String nextCommand_;
  uint64_t nextAt_ = 0;
  uint64_t stopDeadline_ = 0;
  uint64_t attempt_ = 0;
  int32_t qemuPid_ = 0;
  rt::String qemuVersion_;
  uint64_t startedAt_ = 0;
  uint64_t resets_ = 0;
  rt::String endCause_;
  rt::String endText_;
  rt::String endBy_;
  bool endFailed_ = false;
  uint64_t endAt_ = 0;
  int32_t endExit_ = 0;
  int32_t endSignal_ = 0;
  uint64_t starts_ = 0;
  rt::String ends_;
  uint64_t startedRun_ = 0;
  uint64_t endedRun_ = 0;
};

}  // namespace model
