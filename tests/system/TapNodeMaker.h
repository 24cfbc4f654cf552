// In the place of udevd.
#pragma once

#include <thread>

namespace Vm::fakes {

// In a kernel sandbox: makes and removes /dev/tapN as macvtap devices come and go, on a thread of
// its own that waits for the kernel to tell. Whoever opens a node may do so a little before it is
// there, as with udevd.
class TapNodeMaker {
 public:
  TapNodeMaker();
  TapNodeMaker(const TapNodeMaker&) = delete;
  ~TapNodeMaker();

 private:
  void run() const;

  int links_;  // a socket that hears of links
  int stop_;   // an eventfd
  std::thread thread_;
};

}  // namespace Vm::fakes
