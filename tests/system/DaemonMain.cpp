// Runs its tests on a machine of their own.
#include <gmock/gmock.h>

#include <cstring>

#include "tests/system/DaemonWorld.h"
#include "tests/system/PrivateMounts.h"

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  if (!testing::GTEST_FLAG(list_tests))
    if (const auto needs = host::fakes::enterDaemonWorld(SCRIPTED_QEMU); !needs.empty())
      return Vm::fakes::leaveOut(basename(argv[0]), needs);
  return RUN_ALL_TESTS();
}
