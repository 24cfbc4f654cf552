// What shims have told of their guests, read from their files.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "host/state/GuestEvent.h"

namespace host {

// Reads the file "events" of each VM, and the older one beside it, and remembers how far. Of a file
// that cannot be read, or a line that is none, nothing is told. Owned by who follows the files.
class EventReader {
 public:
  // `directory`: of all VMs' directories.
  explicit EventReader(rt::String directory) : directory_(std::move(directory)) {}

  // Returns what the VM's shim has told since the last call; at first, all that is still there.
  std::vector<GuestEvent::Ptr> read(const rt::String& vm);

 private:
  const rt::String directory_;
  std::map<rt::String, std::string> last_;  // by VM: the line that was read last, with its end
};

}  // namespace host
