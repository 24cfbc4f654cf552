// A file system that does not answer, as one whose server has gone.
#pragma once

#include <string>

#include "runtime/base/Descriptor.h"

namespace host::fakes {

// Mounted at that path, which is made, while this lives. It has been greeted, and answers nothing
// from then on: who asks it hangs in the kernel, and no signal ends him once his question was
// taken.
class DeadFileSystem {
 public:
  explicit DeadFileSystem(std::string path);
  DeadFileSystem(const DeadFileSystem&) = delete;
  ~DeadFileSystem() { go(); }

  // Waits for a question and takes it.
  void takeQuestion() const;
  // Is unmounted; who waits for an answer is told that there is nobody.
  void go();

 private:
  const std::string path_;
  rt::Descriptor kernel_;
};

}  // namespace host::fakes
