#include "host/service/InheritedDescriptors.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <unistd.h>

namespace host {

void keepInheritedDescriptors() {
  constexpr int first = STDERR_FILENO + 1;
  if (close_range(first, ~0U, CLOSE_RANGE_CLOEXEC) == 0) return;
  // The kernel, older than 5.11, can close them only.
  const auto most = static_cast<int>(sysconf(_SC_OPEN_MAX));
  for (int number = first; number < most; ++number) (void)fcntl(number, F_SETFD, FD_CLOEXEC);
}

}  // namespace host
