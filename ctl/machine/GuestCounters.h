// What the kernel has counted of guests, as any user of the machine may read it.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "ctl/machine/Machine.h"

namespace ctl {

struct DiskCounters {
  uint64_t readBytes = 0;
  uint64_t writtenBytes = 0;
  uint64_t reads = 0;
  uint64_t writes = 0;

  friend bool operator==(const DiskCounters&, const DiskCounters&) = default;
};

// As the guest sees it: what it received, and what it sent.
struct CardCounters {
  uint64_t receivedBytes = 0;
  uint64_t sentBytes = 0;
  uint64_t receivedPackets = 0;
  uint64_t sentPackets = 0;
  uint64_t receivedDrops = 0;  // that the guest was too slow for
  uint64_t sentDrops = 0;

  friend bool operator==(const CardCounters&, const CardCounters&) = default;
};

struct CardFacts {
  rt::String device;  // the macvtap; empty: there is none
  std::optional<CardCounters> counters;
  std::optional<bool> carrier;  // nothing: also while it is down
};

// Nothing stands for what nobody counts, or may not be read.
struct GuestCounters {
  // Of which run, and by whom counted: with another, none of these goes on.
  rt::String run;
  std::optional<uint64_t> cpu;           // microseconds of processors
  std::optional<uint64_t> cpuThrottled;  // microseconds that it was held back
  std::optional<uint64_t> memory;        // bytes
  std::optional<uint64_t> memoryMax;     // bytes
  std::optional<DiskCounters> disk;
  std::vector<CardFacts> cards;

  bool isThere() const { return cpu || memory; }
};

// What the kernel's files say, taken apart. Pure.
std::optional<uint64_t> numberIn(const std::optional<rt::String>& file);
// Of a line of io.stat: "8:0 rbytes=1 wbytes=2 rios=3 wios=4 ...".
struct DiskLine {
  std::string_view device;  // "8:0"
  DiskCounters counters;
};
std::vector<DiskLine> diskLinesOf(std::string_view ioStat);
struct ProcessTimes {
  uint64_t cpu = 0;    // microseconds
  uint64_t begin = 0;  // the kernel's ticks since it was booted
};
std::optional<ProcessTimes> processTimesOf(std::string_view stat);
// Bytes of a process that are in memory, by its file "status".
std::optional<uint64_t> residentIn(std::string_view status);

// A guest is counted by its control group, or else by its process; a card by its macvtap, which has
// the card's address.
class GuestCounterReader {
 public:
  struct Guest {
    rt::String name;
    int32_t qemu = 0;               // its process; 0: unknown
    std::vector<rt::String> cards;  // their addresses: "52:54:00:12:34:56"
  };

  explicit GuestCounterReader(const Machine& machine) : machine_(machine) {}
  GuestCounterReader(const GuestCounterReader&) = delete;

  // Looks for groups and devices: to be called before each reading of all guests. `group`: of all
  // guests; empty: they have none.
  void lookAround(const rt::String& group);
  GuestCounters read(const Guest& guest);

 private:
  void readGroup(const rt::String& path, GuestCounters& counters);
  void readProcess(int32_t pid, GuestCounters& counters) const;
  CardFacts readCard(const rt::String& address) const;
  bool isWholeDisk(std::string_view device);

  const Machine& machine_;
  std::map<std::string, rt::String> groups_;             // path by VM
  std::map<std::string, std::string> devices_;           // by address
  std::map<std::string, bool, std::less<>> wholeDisks_;  // by number
};

}  // namespace ctl
