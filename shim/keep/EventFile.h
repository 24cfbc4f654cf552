// The file in which a shim tells what happens to its guest.
#pragma once

#include "shim/decide/GuestEvents.h"
#include "shim/keep/BoundedLog.h"

namespace shim {

// Two files of 32 KiB at most, see guest/EventWords.h. They stay when the shim has ended: what it
// told is read when a daemon comes. On a full disk an event is lost: the guest goes on.
class EventFile {
 public:
  explicit EventFile(Place place);

  // Writes the event, if its kind was not told too often. Returns whether it was not.
  bool tell(const GuestEvent& event);
  // Writes what lasts and was not told then. When there is something to be written next, in ms.
  void timePassed();
  std::optional<int64_t> timeLeft() const;

 private:
  static constexpr size_t limit = 32 * 1024;

  BoundedLog file_;
  EventLines lines_;
};

}  // namespace shim
