// The fixture of tests with a daemon and scripted QEMUs.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/system/DaemonWorld.h"

namespace host::fakes {

class DaemonFixture : public testing::Test {
 protected:
  // A VM that is switched on. (It is told to be running once its QEMU has said so.)
  void runVm(const std::string& name) {
    world.addVm(name, {"--enabled"});
    ASSERT_TRUE(waitUntil([&] { return isOn(name); }));
  }
  bool isOff(const std::string& name) {
    return world.hasRow("vmStatus", name, R"("enabled":false)") && world.guests(name).empty();
  }
  bool isOn(const std::string& name) {
    return world.hasRow("vmStatus", name, R"("enabled":true)") && world.guests(name).size() == 1;
  }

  DaemonWorld world;
};

}  // namespace host::fakes
