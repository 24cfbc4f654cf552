#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include "shim/keep/QemuProcess.h"

namespace shim {
namespace {

// A shim that took no notice of the monitor's socket would make another: an agent that is connected
// to the first would wait for ever.
TEST(QemuProcessDescriptors, AreAllFoundThoughNoFurtherOneCanBeOpened) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit none{0, limit.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  const std::vector<int> found = inheritedDescriptors();
  setrlimit(RLIMIT_NOFILE, &limit);
  EXPECT_THAT(found, testing::IsSupersetOf({ends[0], ends[1]}));
  EXPECT_EQ(found, inheritedDescriptors());
  for (const int each : ends) close(each);
}

}  // namespace
}  // namespace shim
