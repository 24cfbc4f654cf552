// Whether a file can be a VM's disk image.
//
// Apart from the other rules: a file can come and go by itself, so a missing image is a problem to
// tell of, and no reason to refuse a configuration.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "guest/ImageHeader.h"
#include "runtime/base/Problem.h"
#include "runtime/base/Seconds.h"

namespace edge {

// The agent reads five bytes from byte 32,769 on, to tell a CD from a hard disk.
constexpr uint64_t smallestImage = 32774;

// What a look at a file tells of it.
struct ImageFacts {
  enum class Kind : uint8_t { regular, blockDevice, other };

  int error = 0;  // the errno when the file is missing or cannot be read; the rest is 0 then
  Kind kind = Kind::other;
  uint64_t size = 0;                              // bytes
  std::array<char, guest::imageHeadSize> head{};  // its first bytes; zeros behind its end
};

// The facts of a file that could not be looked at: an errno.
ImageFacts unreadable(int error);

// The one function of this folder that looks at a file. It changes nothing, and a file system that
// does not answer holds it up for ever: see ImageLook.h.
ImageFacts imageFacts(const rt::String& path);

// How long an image may take to answer a look at it.
constexpr rt::Seconds imagePatience{5};

// Pure: raw disks and CDs, and qcow2 of version 2 or 3 that needs no second file, will do.
std::optional<rt::Problem> imageProblem(const rt::String& path, const ImageFacts& facts);

}  // namespace edge
