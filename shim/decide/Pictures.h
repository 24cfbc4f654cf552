// What QEMU keeps of the pictures of its guest's screen: pure.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "shim/decide/Cards.h"

namespace shim {

// QEMU closes a descriptor that it is told to remove only while its guest runs; of one that stands
// still it would keep each picture, until it has no descriptor left for a card.
//
//   a picture of a guest that | QEMU
//   --------------------------+------------------------------------------------------------------
//   runs                      | keeps nothing of it
//   stands still              | keeps it until the guest runs again and it is told to once more.
//                             | Until then there is no other picture: this is shown again
//
// A reset while it stands still makes another one; of those it keeps some.
class Pictures {
 public:
  static constexpr size_t mostKept = 32;

  // QEMU told of its guest that; a kind of guest/EventWords.h.
  void take(std::string_view kind);
  // Names the time for which a guest that stands still has shown the same; nothing of one that
  // runs.
  std::optional<uint64_t> stillness() const;
  bool hasRoom() const { return kept_.size() < mostKept; }

  // What QEMU is asked: it gets the descriptor, draws, and has it for no longer. `number`: no two
  // pictures have the same.
  static std::vector<Step> drawing(uint64_t number);
  // QEMU is asked for the picture of that number, and has answered.
  void begin(uint64_t number);
  void end();
  // What QEMU is to be asked once more, for now it does it.
  std::vector<Step> removals();

 private:
  struct Drawn {
    uint64_t number = 0;
    uint64_t changes = 0;
  };

  bool isRunning_ = false;
  uint64_t changes_ = 0;  // how often it stopped, ran again or was reset
  std::optional<Drawn> drawn_;
  std::vector<uint64_t> kept_;
};

}  // namespace shim
