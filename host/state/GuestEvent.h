// What a shim told of its guest.
#pragma once

#include "runtime/entity/EntityOf.h"

namespace host {

// One line of a VM's file "events", see guest/EventWords.h. Read once, and never changed.
class GuestEvent final : public rt::EntityOf<GuestEvent> {
 public:
  explicit GuestEvent(rt::String vm) : vm_(std::move(vm)) {}

  const rt::String& vm() const { return vm_; }

  // Which run of the VM it is of, and which line of it: together they name the event.
  uint64_t run() const { return run_; }
  void runIs(uint64_t run) { assign<&GuestEvent::run>(run_, run); }
  uint64_t n() const { return n_; }
  void nIs(uint64_t n) { assign<&GuestEvent::n>(n_, n); }

  uint64_t at() const { return at_; }  // ms since 1970
  void atIs(uint64_t at) { assign<&GuestEvent::at>(at_, at); }
  uint64_t up() const { return up_; }  // ms since the machine was booted
  void upIs(uint64_t up) { assign<&GuestEvent::up>(up_, up); }

  const rt::String& kind() const { return kind_; }
  void kindIs(const rt::String& kind) { assign<&GuestEvent::kind>(kind_, kind); }
  const rt::String& reason() const { return reason_; }
  void reasonIs(const rt::String& reason) { assign<&GuestEvent::reason>(reason_, reason); }
  const rt::String& text() const { return text_; }
  void textIs(const rt::String& text) { assign<&GuestEvent::text>(text_, text); }
  // Who asked for it; empty: nobody did, or nobody knows.
  const rt::String& by() const { return by_; }
  void byIs(const rt::String& who) { assign<&GuestEvent::by>(by_, who); }
  int64_t uid() const { return uid_; }  // his, by the kernel's word; -1: not known
  void uidIs(int64_t uid) { assign<&GuestEvent::uid>(uid_, uid); }
  bool byGuest() const { return byGuest_; }
  void byGuestIs(bool byGuest) { assign<&GuestEvent::byGuest>(byGuest_, byGuest); }

  int32_t pid() const { return pid_; }
  void pidIs(int32_t pid) { assign<&GuestEvent::pid>(pid_, pid); }
  int32_t exit() const { return exit_; }
  void exitIs(int32_t status) { assign<&GuestEvent::exit>(exit_, status); }
  int32_t signal() const { return signal_; }
  void signalIs(int32_t signal) { assign<&GuestEvent::signal>(signal_, signal); }
  // How many of its kind were not told before it.
  uint64_t skipped() const { return skipped_; }
  void skippedIs(uint64_t count) { assign<&GuestEvent::skipped>(skipped_, count); }

  static constexpr std::string_view typeName = "host::GuestEvent";
  using Attributes =
      rt::AttributeTable<rt::Attribute<"vm", &GuestEvent::vm>,
                         rt::Attribute<"run", &GuestEvent::run, &GuestEvent::runIs>,
                         rt::Attribute<"n", &GuestEvent::n, &GuestEvent::nIs>,
                         rt::Attribute<"at", &GuestEvent::at, &GuestEvent::atIs>,
                         rt::Attribute<"up", &GuestEvent::up, &GuestEvent::upIs>,
                         rt::Attribute<"kind", &GuestEvent::kind, &GuestEvent::kindIs>,
                         rt::Attribute<"reason", &GuestEvent::reason, &GuestEvent::reasonIs>,
                         rt::Attribute<"text", &GuestEvent::text, &GuestEvent::textIs>,
                         rt::Attribute<"by", &GuestEvent::by, &GuestEvent::byIs>,
                         rt::Attribute<"uid", &GuestEvent::uid, &GuestEvent::uidIs>,
                         rt::Attribute<"byGuest", &GuestEvent::byGuest, &GuestEvent::byGuestIs>,
                         rt::Attribute<"pid", &GuestEvent::pid, &GuestEvent::pidIs>,
                         rt::Attribute<"exit", &GuestEvent::exit, &GuestEvent::exitIs>,
                         rt::Attribute<"signal", &GuestEvent::signal, &GuestEvent::signalIs>,
                         rt::Attribute<"skipped", &GuestEvent::skipped, &GuestEvent::skippedIs>>;

 private:
  const rt::String vm_;
  uint64_t run_ = 0;
  uint64_t n_ = 0;
  uint64_t at_ = 0;
  uint64_t up_ = 0;
  rt::String kind_;
  rt::String reason_;
  rt::String text_;
  rt::String by_;
  int64_t uid_ = -1;
  bool byGuest_ = false;
  int32_t pid_ = 0;
  int32_t exit_ = 0;
  int32_t signal_ = 0;
  uint64_t skipped_ = 0;
};

}  // namespace host
