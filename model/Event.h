// A row of the table of events: something that happened, for operators.
#pragma once

#include "runtime/entity/EntityOf.h"

namespace model {

// What an event is of.
namespace eventKind {
inline constexpr const char* config = "config";    // what is asked for was changed
inline constexpr const char* state = "state";      // how a VM is, is another thing now
inline constexpr const char* end = "end";          // a run has ended
inline constexpr const char* guest = "guest";      // reset, panic, error of a disk, watchdog
inline constexpr const char* card = "card";        // a card's problem came, or is mended
inline constexpr const char* shim = "shim";        // likewise one that the guest's keeper finds
inline constexpr const char* problem = "problem";  // likewise any other
inline constexpr const char* daemon = "daemon";    // vmagentd began, or ended
}  // namespace eventKind

constexpr size_t longestEventText = 160;

// Written by the daemon's History; its key is its id in 12 digits.
class Event final : public rt::EntityOf<Event> {
 public:
  explicit Event(rt::String key) : key_(std::move(key)) {}

  const rt::String& key() const { return key_; }

  // Grows with each event; a row that others merge into has a new one.
  uint64_t seq() const { return seq_; }
  void seqIs(uint64_t value) { assign<&Event::seq>(seq_, value); }
  // Of the row.
  uint64_t id() const { return id_; }
  void idIs(uint64_t value) { assign<&Event::id>(id_, value); }
  // When: ms since 1970; of several that are one row, the newest and the first.
  uint64_t at() const { return at_; }
  void atIs(uint64_t value) { assign<&Event::at>(at_, value); }
  uint64_t first() const { return first_; }
  void firstIs(uint64_t value) { assign<&Event::first>(first_, value); }
  // How many events are this row.
  uint64_t count() const { return count_; }
  void countIs(uint64_t value) { assign<&Event::count>(count_, value); }
  // Empty: it is of the whole machine.
  const rt::String& vm() const { return vm_; }
  void vmIs(const rt::String& value) { assign<&Event::vm>(vm_, value); }
  // One of eventKind.
  const rt::String& kind() const { return kind_; }
  void kindIs(const rt::String& value) { assign<&Event::kind>(kind_, value); }
  // A word that stays the same.
  const rt::String& reason() const { return reason_; }
  void reasonIs(const rt::String& value) { assign<&Event::reason>(reason_, value); }
  // "ok", "note", "busy" or "bad".
  const rt::String& severity() const { return severity_; }
  void severityIs(const rt::String& value) { assign<&Event::severity>(severity_, value); }
  // A field or a card; empty: the VM.
  const rt::String& subject() const { return subject_; }
  void subjectIs(const rt::String& value) { assign<&Event::subject>(subject_, value); }
  // A sentence or a clause, of longestEventText bytes at most.
  const rt::String& text() const { return text_; }
  void textIs(const rt::String& value) { assign<&Event::text>(text_, value); }
  // Who did it, and by which program; empty: nobody did, or nobody knows.
  const rt::String& by() const { return by_; }
  void byIs(const rt::String& value) { assign<&Event::by>(by_, value); }
  const rt::String& via() const { return via_; }
  void viaIs(const rt::String& value) { assign<&Event::via>(via_, value); }
  // Of what a shim told: which run, and which line of it; 0: none did.
  uint64_t run() const { return run_; }
  void runIs(uint64_t value) { assign<&Event::run>(run_, value); }
  uint64_t n() const { return n_; }
  void nIs(uint64_t value) { assign<&Event::n>(n_, value); }

  static constexpr std::string_view typeName = "model::Event";
  using Attributes = rt::AttributeTable<
      rt::Attribute<"key", &Event::key>, rt::Attribute<"seq", &Event::seq, &Event::seqIs>,
      rt::Attribute<"id", &Event::id, &Event::idIs>, rt::Attribute<"at", &Event::at, &Event::atIs>,
      rt::Attribute<"first", &Event::first, &Event::firstIs>,
      rt::Attribute<"count", &Event::count, &Event::countIs>,
      rt::Attribute<"vm", &Event::vm, &Event::vmIs>,
      rt::Attribute<"kind", &Event::kind, &Event::kindIs>,
      rt::Attribute<"reason", &Event::reason, &Event::reasonIs>,
      rt::Attribute<"severity", &Event::severity, &Event::severityIs>,
      rt::Attribute<"subject", &Event::subject, &Event::subjectIs>,
      rt::Attribute<"text", &Event::text, &Event::textIs>,
      rt::Attribute<"by", &Event::by, &Event::byIs>,
      rt::Attribute<"via", &Event::via, &Event::viaIs>,
      rt::Attribute<"run", &Event::run, &Event::runIs>, rt::Attribute<"n", &Event::n, &Event::nIs>>;

 private:
  const rt::String key_;
  uint64_t seq_ = 0;
  uint64_t id_ = 0;
  uint64_t at_ = 0;
  uint64_t first_ = 0;
  uint64_t count_ = 1;
  rt::String vm_;
  rt::String kind_;
  rt::String reason_;
  rt::String severity_;
  rt::String subject_;
  rt::String text_;
  rt::String by_;
  rt::String via_;
  uint64_t run_ = 0;
  uint64_t n_ = 0;
};

}  // namespace model
