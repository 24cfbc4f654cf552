// Static entries in a bridge: what is wanted is there, what is ours goes when it is not, and what
// is another's stays.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/network/BridgeFdb.h"
#include "runtime/fakes/ManualClock.h"
#include "runtime/fakes/TraceRecorder.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

rt::EthAddr mac(int last) {
  return *rt::EthAddr::fromText("52:54:00:00:00:0" + std::to_string(last));
}

// What a kernel remembers of one bridge.
struct FakeBridge {
  std::optional<Bridge> bridge = Bridge{7, false};
  std::set<BridgeEntry> entries;
  std::set<uint16_t> missingVlans;
  int requests = 0;
};

class FakeKernel final : public BridgeKernel {
 public:
  explicit FakeKernel(FakeBridge& fake) : fake_(fake) {}
  std::optional<Bridge> bridge(const rt::String& name) override {
    return name == "br0" ? fake_.bridge : std::nullopt;
  }
  Answer add(const Bridge&, const BridgeEntry& entry) override {
    ++fake_.requests;
    if (fake_.missingVlans.contains(entry.vlan)) return {Added::failed, "no such VLAN"};
    return {fake_.entries.insert(entry).second ? Added::done : Added::wasThere, {}};
  }
  bool remove(const Bridge&, const BridgeEntry& entry) override {
    ++fake_.requests;
    if (fake_.missingVlans.contains(entry.vlan)) return false;
    fake_.entries.erase(entry);
    return true;
  }

 private:
  FakeBridge& fake_;
};

class BridgeFdbTest : public testing::Test {
 protected:
  void start(std::set<BridgeEntry> leftover = {}) {
    fdb = rt::make<BridgeFdb>("br0", std::make_unique<FakeKernel>(kernel), status, devices,
                              std::move(leftover), clock);
    fdb->pass();
  }
  void advance(rt::Seconds time) {
    clock->nowIs(clock->now() + time);
    clock->pass([] { return false; });
    fdb->pass();
  }
  // The kernel has another device of that name, and somebody's entries are in it.
  void recreate(bool filtersVlans, std::set<BridgeEntry> entries = {}) {
    kernel.entries = std::move(entries);
    kernel.bridge = Bridge{kernel.bridge->ifIndex + 1, filtersVlans};
    devices->interfaceIs({{}, kernel.bridge->ifIndex}, "br0");
    fdb->pass();
  }

  FakeBridge kernel;
  const HostStatus::Ptr status = rt::make<HostStatus>();
  const KernelNetInfo::Status::Ptr devices = rt::make<KernelNetInfo::Status>();
  const rt::Ptr<rt::fakes::ManualClock> clock = rt::make<rt::fakes::ManualClock>();
  rt::fakes::TraceRecorder traces;
  BridgeFdb::Ptr fdb;
};

TEST_F(BridgeFdbTest, AddsWhatIsWantedAndSaysSo) {
  status->fdbIs("100/52:54:00:00:00:01");
  start();
  EXPECT_THAT(kernel.entries, UnorderedElementsAre(BridgeEntry{mac(1), 0}));
  EXPECT_EQ(status->fdb("100/52:54:00:00:00:01")->bridge(), "br0");
}

TEST_F(BridgeFdbTest, GivesTheVlanWhereTheBridgeFiltersVlans) {
  kernel.bridge->filtersVlans = true;
  status->fdbIs("100/52:54:00:00:00:01");
  status->fdbIs("200/52:54:00:00:00:01");
  start();
  EXPECT_THAT(kernel.entries,
              UnorderedElementsAre(BridgeEntry{mac(1), 100}, BridgeEntry{mac(1), 200}));
}

TEST_F(BridgeFdbTest, KeepsOneForSeveralVlansUntilTheLastIsGone) {
  status->fdbIs("100/52:54:00:00:00:01");
  status->fdbIs("200/52:54:00:00:00:01");
  start();
  EXPECT_EQ(kernel.entries.size(), 1U);
  status->fdbDel("100/52:54:00:00:00:01");
  fdb->pass();
  EXPECT_EQ(kernel.entries.size(), 1U);
  status->fdbDel("200/52:54:00:00:00:01");
  fdb->pass();
  EXPECT_THAT(kernel.entries, IsEmpty());
}

TEST_F(BridgeFdbTest, NeverTouchesAnothersEntry) {
  kernel.entries = {{mac(1), 0}, {mac(9), 0}};
  status->fdbIs("100/52:54:00:00:00:01");
  start();
  EXPECT_EQ(status->fdb("100/52:54:00:00:00:01")->bridge(), "") << "it is not ours";
  status->fdbDel("100/52:54:00:00:00:01");
  fdb->pass();
  EXPECT_THAT(kernel.entries, UnorderedElementsAre(BridgeEntry{mac(1), 0}, BridgeEntry{mac(9), 0}));
}

TEST_F(BridgeFdbTest, RemovesWhatAnEarlierDaemonPutThereAndIsNotWantedAnyMore) {
  kernel.entries = {{mac(1), 0}, {mac(2), 0}, {mac(9), 0}};
  status->fdbIs("100/52:54:00:00:00:01");
  start({{mac(1), 0}, {mac(2), 0}});
  EXPECT_THAT(kernel.entries, UnorderedElementsAre(BridgeEntry{mac(1), 0}, BridgeEntry{mac(9), 0}));
  EXPECT_EQ(status->fdb("100/52:54:00:00:00:01")->bridge(), "br0");
}

TEST_F(BridgeFdbTest, AppliesAllAnewToABridgeThatWasMadeAnew) {
  status->fdbIs("100/52:54:00:00:00:01");
  start();
  recreate(/*filtersVlans=*/true);
  EXPECT_THAT(kernel.entries, UnorderedElementsAre(BridgeEntry{mac(1), 100}));
}

TEST_F(BridgeFdbTest, NeverTouchesAnothersEntryInABridgeThatWasMadeAnew) {
  status->fdbIs("100/52:54:00:00:00:01");
  start();
  recreate(/*filtersVlans=*/false, {{mac(1), 0}});
  EXPECT_EQ(status->fdb("100/52:54:00:00:00:01")->bridge(), "") << "ours went with the old one";
  status->fdbDel("100/52:54:00:00:00:01");
  fdb->pass();
  EXPECT_THAT(kernel.entries, UnorderedElementsAre(BridgeEntry{mac(1), 0}));
}

TEST_F(BridgeFdbTest, SaysAnewWhyABridgeThatWasMadeAnewRefuses) {
  kernel.bridge->filtersVlans = true;
  kernel.missingVlans = {100};
  status->fdbIs("100/52:54:00:00:00:01");
  start();
  traces.take();
  recreate(/*filtersVlans=*/true);
  EXPECT_THAT(traces.take(1), ElementsAre(HasSubstr("no such VLAN")));
}

TEST_F(BridgeFdbTest, WaitsForABridgeThatIsNotThere) {
  kernel.bridge = std::nullopt;
  status->fdbIs("100/52:54:00:00:00:01");
  start();
  EXPECT_THAT(kernel.entries, IsEmpty());
  EXPECT_EQ(status->fdb("100/52:54:00:00:00:01")->bridge(), "");
  kernel.bridge = Bridge{7, false};
  devices->interfaceIs({{}, 7}, "br0");
  fdb->pass();
  EXPECT_EQ(kernel.entries.size(), 1U);
}

TEST_F(BridgeFdbTest, PutsBackWhatSomebodyRemoved) {
  status->fdbIs("100/52:54:00:00:00:01");
  start();
  kernel.entries.clear();
  status->fdbIs("100/52:54:00:00:00:02");
  fdb->pass();
  EXPECT_EQ(kernel.entries.size(), 2U);
}

TEST_F(BridgeFdbTest, PutsBackWhatSomebodyRemovedWithinFiveSecondsThoughNothingElseChanged) {
  status->fdbIs("100/52:54:00:00:00:01");
  start();
  for (int i = 0; i < 2; ++i) {
    kernel.entries.clear();
    advance(rt::Seconds(4.9));
    EXPECT_THAT(kernel.entries, IsEmpty());
    advance(rt::Seconds(0.2));
    EXPECT_EQ(kernel.entries.size(), 1U);
  }
}

TEST_F(BridgeFdbTest, TriesAgainWhatWasRefusedAndSaysWhyOnce) {
  kernel.bridge->filtersVlans = true;
  kernel.missingVlans = {100};
  status->fdbIs("100/52:54:00:00:00:01");
  start();
  for (int i = 0; i < 3; ++i) advance(BridgeFdb::interval);
  EXPECT_THAT(traces.take(1), ElementsAre(HasSubstr("no such VLAN")));
  EXPECT_EQ(status->fdb("100/52:54:00:00:00:01")->bridge(), "");
  kernel.missingVlans.clear();
  advance(BridgeFdb::interval);
  EXPECT_THAT(kernel.entries, UnorderedElementsAre(BridgeEntry{mac(1), 100}));
  EXPECT_EQ(status->fdb("100/52:54:00:00:00:01")->bridge(), "br0");
}

TEST_F(BridgeFdbTest, KeepsAsItsOwnWhatABridgeHasOfAVlanThatWasTakenAway) {
  kernel.bridge->filtersVlans = true;
  status->fdbIs("100/52:54:00:00:00:01");
  start();
  kernel.missingVlans = {100};  // the kernel keeps the entry
  advance(BridgeFdb::interval);
  EXPECT_THAT(traces.take(1), ElementsAre(HasSubstr("no such VLAN")));
  EXPECT_EQ(status->fdb("100/52:54:00:00:00:01")->bridge(), "br0") << "for the next daemon";
  status->fdbDel("100/52:54:00:00:00:01");
  fdb->pass();
  advance(BridgeFdb::interval);
  EXPECT_EQ(kernel.entries.size(), 1U);
  kernel.missingVlans.clear();
  advance(BridgeFdb::interval);
  EXPECT_THAT(kernel.entries, IsEmpty()) << "nobody wants it any more";
  advance(BridgeFdb::interval);
  EXPECT_EQ(clock->nextWakeUpTime(), rt::Seconds::infinity());
}

TEST_F(BridgeFdbTest, AppliesAllAnewToABridgeThatFiltersVlansFromNowOn) {
  status->fdbIs("100/52:54:00:00:00:01");
  start();
  kernel.bridge->filtersVlans = true;
  advance(BridgeFdb::interval);
  EXPECT_THAT(kernel.entries, UnorderedElementsAre(BridgeEntry{mac(1), 100}));
}

TEST_F(BridgeFdbTest, AsksNothingOfTheKernelWhenNothingChanged) {
  status->fdbIs("100/52:54:00:00:00:01");
  start();
  const int before = kernel.requests;
  fdb->pass();
  EXPECT_EQ(kernel.requests, before);
}

TEST_F(BridgeFdbTest, SleepsWhenNothingIsWanted) {
  start();
  advance(rt::Seconds(0));  // each clock's first pass wakes all
  EXPECT_EQ(clock->nextWakeUpTime(), rt::Seconds::infinity());
  status->fdbIs("100/52:54:00:00:00:01");
  fdb->pass();
  EXPECT_LT(clock->nextWakeUpTime(), rt::Seconds::infinity());
  status->fdbDel("100/52:54:00:00:00:01");
  fdb->pass();
  advance(BridgeFdb::interval);
  EXPECT_EQ(clock->nextWakeUpTime(), rt::Seconds::infinity());
}

TEST(BridgeEntryFromKey, ReadsAVlanAndAnAddress) {
  EXPECT_EQ(bridgeEntryFromKey("100/52:54:00:00:00:01"), (BridgeEntry{mac(1), 100}));
  for (const char* text : {"", "100", "/52:54:00:00:00:01", "x/52:54:00:00:00:01", "100/x"})
    EXPECT_EQ(bridgeEntryFromKey(text), std::nullopt) << text;
}

}  // namespace
}  // namespace host
