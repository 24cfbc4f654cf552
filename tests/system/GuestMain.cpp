// main() for tests with real guests, in namespaces of their own.
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstring>

#include "tests/system/GuestWorld.h"
#include "tests/system/PrivateMounts.h"

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  if (testing::GTEST_FLAG(list_tests)) return RUN_ALL_TESTS();
  if (access("/usr/bin/qemu-system-x86_64", X_OK) != 0)
    return Vm::fakes::leaveOut(basename(argv[0]), "QEMU");
  if (const auto needs = host::fakes::enterDaemonWorld(host::fakes::machinesQemu); !needs.empty())
    return Vm::fakes::leaveOut(basename(argv[0]), needs);
  return RUN_ALL_TESTS();
}
