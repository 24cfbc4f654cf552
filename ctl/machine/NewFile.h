// A file that is put into its place when it is whole.
#pragma once

#include <cstdint>
#include <string_view>

#include "runtime/base/Descriptor.h"
#include "runtime/base/String.h"

namespace ctl {

struct FilePlace {
  enum class Standing : uint8_t { stays, isReplaced };  // what stands there already
  enum class Life : uint8_t { passing, lasting };       // lasting: also over a loss of power

  rt::String path;
  unsigned mode = 0600;
  Standing standing = Standing::stays;
  Life life = Life::lasting;
};

// Stands beside its place under a name of its own, which begins with a dot, and goes unless it was
// put there. All throw rt::ErrnoException, which names the place.
class NewFile {
 public:
  explicit NewFile(FilePlace place);
  NewFile(const NewFile&) = delete;
  ~NewFile();

  // Where it is until then: empty at first.
  const rt::String& path() const { return path_; }
  void write(std::string_view bytes);
  // Puts what is there now into its place.
  void put();

 private:
  [[noreturn]] void fail(int error) const;

  const FilePlace place_;
  rt::String path_;
  rt::Descriptor descriptor_;
};

}  // namespace ctl
