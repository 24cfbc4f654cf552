// The fixture of tests with guests of one sector, which start in a tenth of a second.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/system/GuestWorld.h"

namespace host::fakes {

// What the guest of one sector does with a byte on its console; any other it sends back.
inline constexpr const char* powerOff = "\x04";
inline constexpr const char* reset = "\x12";
inline constexpr const char* halt = "\x08";  // for good, and deaf to interrupts
inline constexpr const char* ready = "BOOTSECTOR READY";

inline constexpr double pollInterval = 5;  // seconds, of the agent's

class GuestFixture : public testing::Test {
 protected:
  static std::vector<std::string> options();
  void start(const std::vector<std::string>& more = {});
  // Returns what vmctl says. The guest's disk is a copy of `image`, for it is opened for writing;
  // without one, the guest is on a hard disk.
  Ended addVm(const std::string& name, const std::vector<std::string>& more = {},
              const std::string& image = {}) const;
  // One that has booted.
  void bootVm(const std::string& name, const std::vector<std::string>& more = {},
              const std::string& image = {}) const;
  // One that is shown running, too: the agent asks now and then only.
  void runVm(const std::string& name, const std::vector<std::string>& more = {}) const;
  void expectShownRunning(const std::string& name) const;
  bool becomes(const std::string& name, const std::string& state) const;
  // Whether 'vmctl why' comes to say that of it, within 30 s.
  bool says(const std::string& name, const std::string& text) const;
  // All that is said of it, for who has failed to see what he looked for.
  std::string told(const std::string& name) const;
  // A guest that echoes what is typed runs, and so does its console.
  void expectEcho(const std::string& name, const std::string& text) const;
  // What a guest leaves is what it said, and what was said of it.
  void expectNothingLeftOf(const std::string& name) const;
  void waitForPolls(const std::string& name, size_t more) const;

  GuestWorld world;
};

// A switch's interface, with nothing on its wire.
void addPort(const std::string& port);
// The machine's macvtap devices, one line each.
std::string macvtaps();

}  // namespace host::fakes
