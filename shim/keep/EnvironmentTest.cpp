#include <gmock/gmock.h>

#include <map>

#include "shim/keep/Environment.h"

namespace shim {
namespace {

using std::chrono::seconds;

Environment environment(const std::map<std::string, std::string>& values) {
  return environmentFrom([&](const char* name) -> const char* {
    const auto found = values.find(name);
    return found == values.end() ? nullptr : found->second.c_str();
  });
}

std::string refusal(const std::map<std::string, std::string>& values) {
  try {
    environment(values);
  } catch (const ArgumentError& error) {
    return error.what();
  }
  return {};
}

TEST(Environment, HasDefaults) {
  for (const auto& values : {std::map<std::string, std::string>{},
                             std::map<std::string, std::string>{{"VMAGENT_QEMU", ""},
                                                                {"VMAGENT_RUN_DIR", ""},
                                                                {"VMAGENT_ACCEL", ""},
                                                                {"VMAGENT_VNC_LISTEN", ""},
                                                                {"VMAGENT_IMAGE_FORMAT", ""},
                                                                {"VMAGENT_STOP_TIMEOUT", ""},
                                                                {"VMAGENT_GUEST_USERS", ""},
                                                                {"VMAGENT_QEMU_READS", ""},
                                                                {"VMAGENT_LISTENER", ""}}}) {
    const Environment found = environment(values);
    EXPECT_EQ(found.qemu, "/usr/libexec/vmagent-qemu");
    EXPECT_EQ(found.runDir, "/run/vmagent");
    EXPECT_EQ(found.policy.acceleration, guest::Acceleration::automatic);
    EXPECT_EQ(found.screenAddress, "");
    EXPECT_EQ(found.guestUsers, guest::UserRange());
    EXPECT_THAT(found.qemuReads, testing::IsEmpty());
    EXPECT_EQ(found.stopTimeout, seconds(15));
    EXPECT_EQ(found.imageFormat, std::nullopt);
    EXPECT_EQ(found.listener, -1);
  }
}

TEST(Environment, SaysWhatAnOperatorWants) {
  const Environment found = environment({{"VMAGENT_QEMU", "/q"},
                                         {"VMAGENT_RUN_DIR", "/r"},
                                         {"VMAGENT_ACCEL", "kvm"},
                                         {"VMAGENT_VNC_LISTEN", "10.0.0.1"},
                                         {"VMAGENT_STOP_TIMEOUT", "0"},
                                         {"VMAGENT_GUEST_USERS", "70000-70099"},
                                         {"VMAGENT_QEMU_READS", "/opt/qemu:/srv"},
                                         {"VMAGENT_LISTENER", "7"}});
  EXPECT_EQ(found.qemu, "/q");
  EXPECT_EQ(found.runDir, "/r");
  EXPECT_EQ(found.policy.acceleration, guest::Acceleration::kvm);
  EXPECT_EQ(found.screenAddress, "10.0.0.1");
  EXPECT_EQ(found.guestUsers, (guest::UserRange{70000, 70099}));
  EXPECT_THAT(found.qemuReads, testing::ElementsAre("/opt/qemu", "/srv"));
  EXPECT_EQ(found.stopTimeout, seconds(0));
  EXPECT_EQ(found.listener, 7);
}

TEST(Environment, SaysWhatTheDiskImageIs) {
  for (const auto format : {guest::ImageFormat::raw, guest::ImageFormat::qcow2})
    EXPECT_EQ(environment({{"VMAGENT_IMAGE_FORMAT", std::string(textOf(format))}}).imageFormat,
              format);
}

TEST(Environment, OfNoUseIsRefused) {
  EXPECT_EQ(refusal({{"VMAGENT_ACCEL", "fast"}}),
            "VMAGENT_ACCEL: 'fast' is refused: it must be auto, kvm or tcg");
  for (const char* const text : {"RAW", "vmdk"})
    EXPECT_EQ(
        refusal({{"VMAGENT_IMAGE_FORMAT", text}}),
        "VMAGENT_IMAGE_FORMAT: '" + std::string(text) + "' is refused: it must be raw or qcow2");
  for (const char* const text : {"-1", "x", "1x", "86401", "99999999999999"})
    EXPECT_EQ(refusal({{"VMAGENT_STOP_TIMEOUT", text}}),
              "VMAGENT_STOP_TIMEOUT: '" + std::string(text) +
                  "' is refused: it must be 0 to 86400 (seconds)");
  for (const char* const text : {"-1", "x", "7x", " 7", "99999999999999"})
    EXPECT_EQ(refusal({{"VMAGENT_LISTENER", text}}),
              "VMAGENT_LISTENER: '" + std::string(text) +
                  "' is refused: it must be a descriptor's number");
}

}  // namespace
}  // namespace shim
