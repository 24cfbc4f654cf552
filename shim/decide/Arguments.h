// QEMU's command line: the one that the agent writes becomes one that a present-day QEMU takes.
//
// All of it is pure. What the machine is like comes as Facts; what an operator wants, as Policy.
#pragma once

#include <array>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "guest/Variables.h"

namespace shim {

// What a command line lacks, in a sentence for an operator.
class ArgumentError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Policy {
  guest::Acceleration acceleration = guest::Acceleration::automatic;
};

// A disk image as QEMU finds it: open.
struct DriveFile {
  int set = 0;                   // of descriptors
  std::vector<int> descriptors;  // of that set; their numbers in QEMU
  // "raw" or "qcow2". QEMU, told none, would guess, and a guest could write a header that makes it
  // guess wrong.
  std::string format = "raw";
  bool isBlockDevice = false;
};

struct Facts {
  // Whether /dev/kvm opens and the CPU can run guests. Both, for a /dev/kvm that opens may still
  // run no guest, and QEMU does not fall back by itself.
  bool kvmUsable = false;
  // The disk images by their paths. One that is not among them keeps its path, and is raw.
  std::map<std::string, DriveFile> images;
};

// Where QEMU finds what it inherits.
inline constexpr int monitorDescriptor = 3;
inline constexpr int serialDescriptor = 4;
inline constexpr int lockDescriptor = 5;
inline constexpr int firstImageDescriptor = 6;  // and the rest of them behind it

// The name that QEMU knows a set of descriptors by.
std::string fdSetName(int set);

// The ids of our ends of a hub: the card's, and that of the backend it is bound to.
std::string hubPortId(std::string_view peerId);

struct Card {
  std::string id;
  std::string mac;  // in lower case
  std::string model;
};

// A disk image that QEMU is to have.
struct Drive {
  std::string path;
  bool isCd = false;  // it is only read then
};

// What an operator knows QEMU's options as. The rest is what no field of a VM has a word for.
namespace setting {
inline constexpr const char* memory = "memory";
inline constexpr const char* diskImage = "disk image";
inline constexpr const char* display = "display";
inline constexpr const char* rest = "command line";
inline constexpr std::array all{memory, diskImage, display, rest};  // as differences are told
}  // namespace setting

// A command line after one look at it.
struct CommandLine {
  std::vector<std::string> arguments;  // without the program's name
  std::string name;                    // of the VM
  std::string monitorPath;
  std::vector<Drive> drives;  // those without a format
  std::vector<Card> cards;    // those without a backend; the index is their hub
  // The screen's number, when it is one that is to be served at an address. QEMU serves it at none:
  // whoever is to see it is given to it.
  std::optional<unsigned> screen;
  std::optional<unsigned> memory;  // the guest's, in mebibytes
  // All the rest, by the setting that it is.
  std::map<std::string, std::string> settings;
};

// Throws ArgumentError when the VM's name or the monitor's path is missing or of no use.
CommandLine readCommandLine(std::vector<std::string> arguments);

// What to start QEMU with. What is not known stands as it is.
std::vector<std::string> rewrittenArguments(const CommandLine& line, const Facts& facts,
                                            const Policy& policy);

// Whether QEMU is to run its guest by KVM.
bool usesKvm(const Facts& facts, const Policy& policy);

}  // namespace shim
