// A look at a disk image that may never be answered.
#pragma once

#include <sys/types.h>

#include <functional>

#include "model/DiskImage.h"
#include "runtime/base/Seconds.h"

namespace model {

// Looks at a file in a process of its own, so that a file system that does not answer holds up
// nothing else. A thread would not do: one that hangs in the kernel keeps its process from ending,
// and that keeps its locks.
class ImageLook {
 public:
  // Makes system calls and nothing else.
  using Look = std::function<ImageFacts()>;

  // Begins. Throws rt::ErrnoException when there can be no process.
  explicit ImageLook(const Look& look);
  ImageLook(const ImageLook&) = delete;
  // Ends the process without waiting for it.
  ~ImageLook();

  // Readable once the look is over. A new descriptor, the caller's to close.
  int descriptor() const;
  // To be called once it is over; ECANCELED when the process was killed.
  ImageFacts facts() const;

 private:
  ImageFacts* const answer_;  // in memory that is shared with the process
  pid_t pid_ = -1;
};

// The facts of the image, ETIMEDOUT when there are none after that long, or why nobody could look.
ImageFacts imageFactsWithin(const ImageLook::Look& look, rt::Seconds patience);

}  // namespace model
