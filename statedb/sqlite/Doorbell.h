// How processes learn that another one committed.
#pragma once

#include <sys/types.h>

#include "runtime/base/Descriptor.h"
#include "runtime/base/String.h"

namespace statedb::sqlite {

// Ringing opens the -bell file for writing and closes it: inotify tells that to any number of
// watchers, and nothing is written to the disk. The closing of the -wal file counts too: that is
// what happens when a writer is killed before it rang, or never rings. A change of the -wal itself
// would not do, because it is told before the commit can be seen.
//
// All who write may also put something else there, such as a pipe that nobody reads: ringing never
// waits, and makes room for a bell where none is.
class Doorbell {
 public:
  explicit Doorbell(const rt::String& file);
  Doorbell(const Doorbell&) = delete;

  // Makes the -bell file with the mode of the database file unless it exists.
  void make() const;
  void ring() const noexcept;

  // A new descriptor, readable from the next ring on until silence(); the caller closes it. Watches
  // from the first call on.
  int listen();
  void silence() const;

 private:
  void watch();
  int ringOnce() const noexcept;

  rt::String file_;
  rt::String bell_;
  rt::Descriptor inotify_;
};

}  // namespace statedb::sqlite
