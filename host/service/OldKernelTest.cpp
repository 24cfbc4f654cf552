// What the daemon does without on a kernel before 5.11, whose close_range() knows no flags.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "host/service/InheritedDescriptors.h"

namespace {

int calls = 0;

}  // namespace

extern "C" int close_range(unsigned /*first*/, unsigned /*last*/, int /*flags*/) {
  ++calls;
  errno = EINVAL;
  return -1;
}

namespace host {
namespace {

TEST(OldKernel, InheritedDescriptorsAreKeptFromChildrenAllTheSame) {
  const int low = dup(STDERR_FILENO);
  const int high = fcntl(STDERR_FILENO, F_DUPFD, 500);
  ASSERT_GE(high, 500);
  keepInheritedDescriptors();
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(fcntl(low, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(fcntl(high, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(fcntl(STDERR_FILENO, F_GETFD), 0);
  close(low);
  close(high);
}

}  // namespace
}  // namespace host
