#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "host/service/Signals.h"
#include "runtime/base/Exception.h"
#include "runtime/fakes/ManualClock.h"
#include "runtime/loop/ActivityManager.h"

namespace host {
namespace {

// A daemon that could not be told to end would hold its databases and guests against the next one.
TEST(Signals, ThatCannotBeReadKeepTheDaemonFromStarting) {
  rt::ActivityManager manager{rt::make<rt::fakes::ManualClock>()};
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit none{0, limit.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  EXPECT_THROW(rt::make<Signals>([] {}), rt::ErrnoException);
  setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace
}  // namespace host
