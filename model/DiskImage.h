// Whether a file can be a VM's disk image.
//
// Apart from the other rules: a file can come and go by itself, so a missing image is a problem to
// tell of, and no reason to refuse a configuration.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "guest/ImageHeader.h"
#include "runtime/base/Problem.h"
#include "runtime/base/Seconds.h"

namespace model {

// The agent reads five bytes from byte 32,769 on, to tell a CD from a hard disk.
constexpr uint64_t smallestImage = 32774;

// Which file it is, under whatever name: of a block device, which device.
struct FileId {
  uint64_t device = 0;
  uint64_t inode = 0;  // 0: of a block device

  friend bool operator==(const FileId&, const FileId&) = default;
};

// What a look at a file tells of it.
struct ImageFacts {
  enum class Kind : uint8_t { regular, blockDevice, other };

  int error = 0;  // the errno when the file is missing or cannot be read; the rest is 0 then
  Kind kind = Kind::other;
  FileId file;
  uint64_t size = 0;                              // bytes
  std::array<char, guest::imageHeadSize> head{};  // its first bytes; zeros behind its end
  bool isCd = false;                              // as the agent sees it: QEMU only reads it then
  bool othersMayWrite = false;                    // see guest::othersMayWrite()
  bool isInUse = false;  // a block device that is mounted, or a part of what is in use
};

// The facts of a file that could not be looked at: an errno.
ImageFacts unreadable(int error);

// The one function of this folder that looks at a file. It changes nothing, and a file system that
// does not answer holds it up for ever: see ImageLook.h.
ImageFacts imageFacts(const rt::String& path);

// How long an image may take to answer a look at it.
constexpr rt::Seconds imagePatience{5};

// These are pure.

// What keeps the agent from reading the image. It is not to be let at one that has such a problem:
// to open it could take for ever.
std::optional<rt::Problem> accessProblem(const rt::String& path, const ImageFacts& facts);
// What is wrong with an image that is opened as `format`: a qcow2 must need no second file.
std::optional<rt::Problem> imageProblem(const rt::String& path, const ImageFacts& facts,
                                        guest::ImageFormat format);
// The same of one whose format is not fixed yet: raw disks and CDs, and such a qcow2, will do.
std::optional<rt::Problem> imageProblem(const rt::String& path, const ImageFacts& facts);

// What the image is, going by its first bytes; nothing: it cannot be read, or is neither.
std::optional<guest::ImageFormat> detectedFormat(const ImageFacts& facts);
// The name of another format than `format` that the image begins as; empty when it is none.
rt::String otherFormat(const ImageFacts& facts, guest::ImageFormat format);

}  // namespace model
