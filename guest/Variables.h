// The environment variables by which the programs are told what to do.
#pragma once

#include <optional>
#include <string_view>

namespace guest {

namespace variable {

// Read by daemon and command line; the run directory by the shim, too.
inline constexpr const char* stateDir = "VMAGENT_STATE_DIR";
inline constexpr const char* runDir = "VMAGENT_RUN_DIR";
// Read by the daemon.
inline constexpr const char* trace = "VMAGENT_TRACE";

// Given to a shim by its daemon. One that is empty, or not there, says nothing.
inline constexpr const char* qemu = "VMAGENT_QEMU";                 // QEMU's path
inline constexpr const char* accel = "VMAGENT_ACCEL";               // "auto", "kvm" or "tcg"
inline constexpr const char* vncListen = "VMAGENT_VNC_LISTEN";      // the address of screens
inline constexpr const char* stopTimeout = "VMAGENT_STOP_TIMEOUT";  // whole seconds
inline constexpr const char* guestUsers = "VMAGENT_GUEST_USERS";    // "FIRST-LAST": GuestUsers.h
inline constexpr const char* qemuReads = "VMAGENT_QEMU_READS";      // paths, ':' between them
inline constexpr const char* imageFormat = "VMAGENT_IMAGE_FORMAT";  // "raw" or "qcow2"
inline constexpr const char* group = "VMAGENT_GROUP";        // the path of QEMU's control group
inline constexpr const char* listener = "VMAGENT_LISTENER";  // the monitor's descriptor, a number
// The row of the configuration that made the VM: its store's history and its sequence. The next
// daemon reads both in /proc.
inline constexpr const char* store = "VMAGENT_STORE";
inline constexpr const char* row = "VMAGENT_ROW";

}  // namespace variable

// How a guest's processor is made: automatic is KVM where it works.
enum class Acceleration { automatic, kvm, tcg };
inline constexpr const char* defaultAcceleration = "auto";
std::optional<Acceleration> accelerationFrom(std::string_view text);
inline constexpr const char* accelerationRight = "must be auto, kvm or tcg";

// Seconds that a guest gets to shut down by itself, and the most that it can get.
inline constexpr const char* defaultStopTimeout = "15";
inline constexpr int longestStopTimeout = 24 * 60 * 60;
inline constexpr const char* stopTimeoutRight = "must be 0 to 86400 (seconds)";

}  // namespace guest
