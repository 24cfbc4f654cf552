// What the kernel's files say of a guest.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ctl/fakes/FakeMachine.h"
#include "ctl/machine/GuestCounters.h"

namespace ctl {
namespace {

constexpr char group[] = "/sys/fs/cgroup/vmagent/guests";

class GuestCountersOf : public testing::Test {
 protected:
  void putGroup(const std::string& name, const std::string& usage) {
    const std::string path = std::string(group) + "/" + name;
    machine_.texts[path + "/cpu.stat"] =
        "usage_usec " + usage + "\nuser_usec 1\nnr_periods 3\nthrottled_usec 70\n";
    machine_.texts[path + "/memory.current"] = "107000000\n";
    machine_.texts[path + "/memory.max"] = "146800640\n";
    machine_.texts[path + "/io.stat"] =
        "8:0 rbytes=4096 wbytes=8192 rios=1 wios=2 dbytes=0 dios=0\n"
        "253:0 rbytes=4096 wbytes=8192 rios=1 wios=2 dbytes=0 dios=0\n"
        "8:16 rbytes=1 wbytes=0 rios=1 wios=0 dbytes=0 dios=0\n";
    machine_.texts["/sys/dev/block/253:0/slaves/sda"] = "";
  }
  void putDevice(const std::string& name, const std::string& address, uint64_t received) {
    const std::string path = "/sys/class/net/" + name;
    machine_.texts[path + "/address"] = address + "\n";
    machine_.texts[path + "/carrier"] = "1\n";
    const std::string statistics = path + "/statistics/";
    machine_.texts[statistics + "rx_bytes"] = std::to_string(received) + "\n";
    machine_.texts[statistics + "tx_bytes"] = "20\n";
    machine_.texts[statistics + "rx_packets"] = "3\n";
    machine_.texts[statistics + "tx_packets"] = "4\n";
    machine_.texts[statistics + "rx_dropped"] = "5\n";
    machine_.texts[statistics + "tx_dropped"] = "6\n";
  }
  void putProcess(const std::string& pid, const std::string& begin) {
    machine_.texts["/proc/" + pid + "/stat"] =
        pid + " (qemu) a) 1 2) S 1 1 1 0 -1 4194560 1 2 3 4 150 25 0 0 10 -10 4 0 " + begin +
        " 49340416 3915 18446744073709551615\n";
    machine_.texts["/proc/" + pid + "/status"] =
        "Name:\tqemu\nVmHWM:\t  900 kB\nVmRSS:\t  512 kB\n";
  }
  GuestCounters read(const GuestCounterReader::Guest& guest, const rt::String& at = group) {
    GuestCounterReader reader(machine_);
    reader.lookAround(at);
    return reader.read(guest);
  }

  fakes::FakeMachine machine_;
};

TEST_F(GuestCountersOf, AGroupAreItsProcessorsMemoryAndDisks) {
  putGroup("vm-web1.256", "1234567");
  const GuestCounters counters = read({"web1", 4711, {}});
  EXPECT_EQ(counters.cpu, 1234567U);
  EXPECT_EQ(counters.cpuThrottled, 70U);
  EXPECT_EQ(counters.memory, 107000000U);
  EXPECT_EQ(counters.memoryMax, 146800640U);
  EXPECT_TRUE(counters.isThere());
}

// What a volume does, its disk does.
TEST_F(GuestCountersOf, AGroupCountDisksAndNotTheVolumesOnThem) {
  putGroup("vm-web1.256", "1");
  EXPECT_EQ(read({"web1", 4711, {}}).disk,
            (DiskCounters{.readBytes = 4097, .writtenBytes = 8192, .reads = 2, .writes = 2}));
}

TEST_F(GuestCountersOf, AGroupWithoutItsControllersHaveWhatThereIs) {
  putGroup("vm-web1.256", "1");
  machine_.texts.erase(std::string(group) + "/vm-web1.256/io.stat");
  machine_.texts[std::string(group) + "/vm-web1.256/memory.max"] = "max\n";
  const GuestCounters counters = read({"web1", 4711, {}});
  EXPECT_FALSE(counters.disk);
  EXPECT_FALSE(counters.memoryMax);
  EXPECT_EQ(counters.cpu, 1U);
}

TEST_F(GuestCountersOf, AGuestWithoutAGroupAreItsProcess) {
  putGroup("vm-web10.256", "1");
  putProcess("4711", "9000");
  const GuestCounters counters = read({"web1", 4711, {}});
  EXPECT_EQ(counters.cpu, 1'750'000U);
  EXPECT_EQ(counters.memory, 512U * 1024);
  EXPECT_FALSE(counters.disk);
  EXPECT_FALSE(counters.memoryMax);
}

TEST_F(GuestCountersOf, ANewProcessOfTheSameNumberAreAnotherRuns) {
  putProcess("4711", "9000");
  const rt::String before = read({"web1", 4711, {}}).run;
  EXPECT_EQ(read({"web1", 4711, {}}).run, before);
  putProcess("4711", "9001");
  EXPECT_NE(read({"web1", 4711, {}}).run, before);
  putGroup("vm-web1.256", "1");
  EXPECT_NE(read({"web1", 4711, {}}).run, before);
}

TEST_F(GuestCountersOf, AGuestThatIsGoneAreNone) {
  EXPECT_FALSE(read({"web1", 4711, {}}).isThere());
  EXPECT_FALSE(read({"web1", 0, {}}).isThere());
  EXPECT_FALSE(read({"web1", 0, {}}, "").isThere());
}

TEST_F(GuestCountersOf, ACardAreThoseOfTheMacvtapThatHasItsAddressNow) {
  putDevice("macvtap0", "52:54:00:00:00:01", 10);
  putDevice("macvtap1", "52:54:00:00:00:02", 11);
  putDevice("eth0", "52:54:00:00:00:03", 12);
  const GuestCounters counters =
      read({"web1", 0, {"52:54:00:00:00:02", "52:54:00:00:00:01", "52:54:00:00:00:03"}});
  ASSERT_EQ(counters.cards.size(), 3U);
  EXPECT_EQ(counters.cards[0].device, "macvtap1");
  EXPECT_EQ(counters.cards[0].counters, (CardCounters{11, 20, 3, 4, 5, 6}));
  EXPECT_EQ(counters.cards[0].carrier, true);
  EXPECT_EQ(counters.cards[1].counters->receivedBytes, 10U);
  EXPECT_EQ(counters.cards[2].device, "");
  EXPECT_FALSE(counters.cards[2].counters);
  EXPECT_FALSE(counters.cards[2].carrier);
}

TEST_F(GuestCountersOf, ACardFollowItToAnotherDevice) {
  GuestCounterReader reader(machine_);
  putDevice("macvtap0", "52:54:00:00:00:01", 10);
  reader.lookAround("");
  EXPECT_EQ(reader.read({"web1", 0, {"52:54:00:00:00:01"}}).cards[0].device, "macvtap0");
  putDevice("macvtap0", "52:54:00:00:00:09", 10);
  putDevice("macvtap7", "52:54:00:00:00:01", 10);
  reader.lookAround("");
  EXPECT_EQ(reader.read({"web1", 0, {"52:54:00:00:00:01"}}).cards[0].device, "macvtap7");
}

TEST(GuestCounters, OfTextsThatAreNoneAreNone) {
  EXPECT_EQ(numberIn(std::nullopt), std::nullopt);
  EXPECT_EQ(numberIn("max\n"), std::nullopt);
  EXPECT_EQ(numberIn(""), std::nullopt);
  EXPECT_EQ(numberIn("12\n"), 12U);
  for (const char* const stat : {"", "1", "1 (qemu)", "1 (qemu) S 1 2 3", ") "})
    EXPECT_FALSE(processTimesOf(stat)) << stat;
  EXPECT_EQ(residentIn("Name:\tqemu\n"), std::nullopt);
  EXPECT_TRUE(diskLinesOf("").empty());
  EXPECT_TRUE(diskLinesOf("\n \n").empty());
  const std::vector<DiskLine> odd = diskLinesOf("8:0 rbytes= wbytes rios=x =4\n");
  ASSERT_EQ(odd.size(), 1U);
  EXPECT_EQ(odd[0].counters, DiskCounters{});
}

}  // namespace
}  // namespace ctl
