// A file on disk that is written seldom, and never waited for.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "host/base/KeptDirectory.h"
#include "runtime/entity/Reactor.h"
#include "runtime/loop/Clock.h"

namespace host {

// Has what is to be kept written a second after it changed, and not within a minute of the write
// before: flash is worn by each. A process of its own writes, for a disk may stand still; the
// loop's share is to make the text, and the fork. What failed is said once, and tried again a
// minute later.
class KeptFile final : public rt::StateMachineOf<KeptFile> {
 public:
  struct Part {
    std::string text;
    bool isWhole = true;  // in the place of all that stands there; else behind it
  };
  // Gives what is to be written; nothing: it is as it was. `mustBeWhole`: whatever stands there is
  // not to be trusted.
  using Next = std::function<std::optional<Part>(bool mustBeWhole)>;

  // `directory` outlives it.
  KeptFile(const KeptDirectory& directory, rt::String name, Next next, rt::Clock::Ptr clock);
  // Ends who still writes.
  ~KeptFile() override;

  // There is something to write.
  void changed();
  // Writes it now, and waits so long at most for each write, an earlier one too: the daemon ends.
  void finish(rt::Seconds atMost);

  static constexpr rt::Seconds delay{1};
  static constexpr rt::Seconds interval{60};

  static constexpr std::string_view typeName = "host::KeptFile";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &KeptFile::initialized>>;

 private:
  class Writer;

  void handleInitialized();
  void handleClock();
  void write();
  void over(int error);

  const KeptDirectory& directory_;
  const rt::String name_;
  const rt::String newName_;
  const Next next_;
  rt::Ptr<Writer> writer_;  // null: nobody writes
  bool hasNews_ = false;
  bool mustBeWhole_ = true;
  rt::Seconds writtenAt_{-interval.value()};  // when that began last
  int error_ = 0;                             // that was said

  rt::ClockReactor<KeptFile, &KeptFile::handleClock> clock_;
};

}  // namespace host
