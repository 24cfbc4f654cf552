// One request to a guest's shim, over its own socket (guest/ShimProtocol.h), and its answer.
#pragma once

#include "runtime/base/Seconds.h"
#include "runtime/base/String.h"

namespace ctl {

struct ShimCall {
  rt::String socket;   // its path
  rt::String request;  // a line without its end
  rt::Seconds patience;
  bool untilEnd = false;  // returns when the guest has ended, and not when it was asked to
};

struct ShimAnswer {
  enum class Kind : uint8_t {
    done,
    refused,  // line: what it answered
    absent,   // there is no shim
    denied,   // who runs this may not ask it
    silent,   // it has not answered in time
    ended,    // the guest has ended meanwhile
  };
  Kind kind = Kind::done;
  rt::String line;
  rt::String picture;  // the bytes that came along, if any did
};

// A picture that is longer is cut.
constexpr size_t mostPicture = 64 * 1024 * 1024;

ShimAnswer askShim(const ShimCall& call);

}  // namespace ctl
