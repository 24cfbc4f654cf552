// Where the daemon keeps on disk what it wants to know after a reboot: STATE/kept.
#pragma once

#include <optional>
#include <string>

#include "runtime/base/Descriptor.h"
#include "runtime/base/String.h"

namespace host {

// A directory of our own user's, which operators read (mode 0750, and the group of STATE). They may
// write STATE itself: what stands in it under that name and is another user's is left alone, said,
// and nothing is kept.
class KeptDirectory {
 public:
  // Opens it, or makes it.
  explicit KeptDirectory(const rt::String& stateDir);

  const rt::String& path() const { return path_; }
  // -1: there is none.
  int number() const { return directory_.number(); }

  // Returns what the file holds; nothing when it is not there, or is no file of ours of that size
  // at most: that one is put aside.
  std::optional<std::string> read(const char* name, size_t atMost) const;
  // Renames it to NAME.bad, in the place of an earlier one, and says why. One that cannot be
  // renamed is removed.
  void putAside(const char* name, const rt::String& why) const;

 private:
  const rt::String path_;
  const rt::Descriptor directory_;
};

}  // namespace host
