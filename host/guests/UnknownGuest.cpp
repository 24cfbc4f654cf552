#include "host/guests/UnknownGuest.h"

namespace host {

rt::String doubtOf(const std::optional<statedb::Origin>& row, const rt::String& history) {
  if (!row) return "its guest was started by an older version";
  if (row->history != history)
    return "config.db is another than the one that its guest was started by";
  return "config.db is older than its guest, or does not remember";
}

rt::String problemOf(const rt::String& vm, const UnknownGuest& guest) {
  return "not configured, and not known to be removed: " + guest.why +
         "; 'vmctl apply' what has it, and it is kept, or 'vmctl remove " + vm +
         " --force' ends it";
}

}  // namespace host
