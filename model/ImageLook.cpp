#include "model/ImageLook.h"

#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <csignal>
#include <type_traits>

#include "runtime/base/Descriptor.h"
#include "runtime/base/Exception.h"

namespace model {

namespace {

static_assert(std::is_trivially_copyable_v<ImageFacts>, "it passes from process to process");

ImageFacts* sharedFacts() {
  void* const memory =
      mmap(nullptr, sizeof(ImageFacts), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw rt::ErrnoException(errno, "no memory to look at an image");
  return new (memory) ImageFacts(unreadable(ECANCELED));
}

// Holds on to nothing of ours, for it may hang as long as the machine runs.
[[noreturn]] void lookAndEnd(const ImageLook::Look& look, ImageFacts& answer) noexcept {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  prctl(PR_SET_NAME, "image-look");
  (void)close_range(STDERR_FILENO + 1, ~0U, 0);
  answer = look();
  _exit(0);
}

}  // namespace

ImageLook::ImageLook(const Look& look) : answer_(sharedFacts()), pid_(fork()) {
  if (pid_ == 0) lookAndEnd(look, *answer_);
  if (pid_ > 0) return;
  const int error = errno;
  munmap(answer_, sizeof *answer_);
  throw rt::ErrnoException(error, "no process to look at an image");
}

ImageLook::~ImageLook() {
  // Its number is its own until it is waited for, which nobody else does.
  if (waitpid(pid_, nullptr, WNOHANG) == 0) kill(pid_, SIGKILL);
  (void)waitpid(pid_, nullptr, WNOHANG);
  munmap(answer_, sizeof *answer_);
}

int ImageLook::descriptor() const {
  const auto descriptor = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
  if (descriptor < 0) throw rt::ErrnoException(errno, "a look at an image cannot be followed");
  return descriptor;
}

ImageFacts ImageLook::facts() const { return *answer_; }

ImageFacts imageFactsWithin(const ImageLook::Look& look, rt::Seconds patience) {
  try {
    const ImageLook begun(look);
    const rt::Descriptor descriptor(begun.descriptor());
    pollfd over{descriptor.number(), POLLIN, 0};
    const int answered = poll(&over, 1, static_cast<int>(std::ceil(patience.value() * 1000)));
    return answered > 0 ? begun.facts() : unreadable(ETIMEDOUT);
  } catch (const rt::ErrnoException& error) {
    return unreadable(error.error());
  }
}

}  // namespace model
