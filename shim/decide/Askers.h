// Who waits for what came of a wish.
#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "runtime/base/Descriptor.h"

namespace shim {

struct Asker {
  uint64_t client = 0;      // of the shim's own socket
  uint32_t user = 0;        // whose process it is
  rt::Descriptors picture;  // where it can be read, when it is drawn
  // For which its guest stood still when it was asked for.
  std::optional<uint64_t> stillness;
};

// Numbers wishes. Of one user's only some may wait, so that another's do not wait behind any number
// of them: a connection costs nothing, so it is the user who counts.
class Askers {
 public:
  static constexpr size_t mostOfAUser = 32;

  bool mayAsk(uint32_t user) const;
  // The number of his wish: no two have the same.
  uint64_t add(Asker asker);
  // Who waits for it, and does no longer; nobody when there is none of that number.
  std::optional<Asker> take(uint64_t wish);

 private:
  std::map<uint64_t, Asker> askers_;
  uint64_t last_ = 0;
};

}  // namespace shim
