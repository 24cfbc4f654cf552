// Ethernet frames, sent from a device as whoever has it would.
#pragma once

#include <string>

#include "runtime/base/Descriptor.h"
#include "runtime/net/EthAddr.h"

namespace host::fakes {

inline constexpr const char* everybody = "ff:ff:ff:ff:ff:ff";

class FrameSource {
 public:
  explicit FrameSource(const std::string& device);

  // Sends one of a type that is for experiments. Whether it was taken: one that is dropped on its
  // way may count as sent.
  bool send(const std::string& to, const std::string& from = "00:00:00:00:00:00",
            size_t size = 60) const;

 private:
  const int device_;
  const rt::Descriptor socket_;
};

}  // namespace host::fakes
