// The kernel's devices as records: each change told once and in order, whoever throws.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/network/KernelLinks.h"
#include "host/network/LinkRecords.h"
#include "runtime/fakes/ChangeRecorder.h"
#include "runtime/interfaces/NetNsIntfStatusManager.h"
#include "runtime/loop/ActivityManager.h"

namespace host {

// Cannot bear to hear of one device.
class DeviceThrower final : public rt::StateMachineOf<DeviceThrower> {
 public:
  DeviceThrower(KernelNetInfo::Status::Ptr status, uint32_t ifIndex)
      : ifIndex_(ifIndex), status_(*this, std::move(status)) {}

  static constexpr std::string_view typeName = "DeviceThrower";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &DeviceThrower::initialized>>;

 private:
  void handleInterface(const KernelNetInfo::InterfaceKey& key) {
    if (key.ifIndex == ifIndex_) throw rt::Exception("no more descriptors");
  }

  const uint32_t ifIndex_;
  rt::Reactor<DeviceThrower, KernelNetInfo::Status,
              rt::On<&KernelNetInfo::Status::interface, &DeviceThrower::handleInterface>>
      status_;
};

// Hears of interfaces before the host does, as the agent.
class PresenceThrower final : public rt::StateMachineOf<PresenceThrower> {
 public:
  explicit PresenceThrower(Interface::DeviceIntfStatusDir::PtrConst present)
      : present_(*this, std::move(present)) {}

  bool throws = false;

  static constexpr std::string_view typeName = "PresenceThrower";
  using Attributes =
      rt::AttributeTable<rt::Attribute<"initialized", &PresenceThrower::initialized>>;

 private:
  void handlePresent(const rt::IntfId& /*id*/) {
    if (throws) throw rt::Exception("a guest's monitor is gone");
  }

  rt::Reactor<PresenceThrower, const Interface::DeviceIntfStatusDir,
              rt::On<&Interface::DeviceIntfStatusDir::intfStatusAndDeviceName,
                     &PresenceThrower::handlePresent>>
      present_;
};

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

class LinkRecordsTest : public testing::Test {
 protected:
  // The devices that the agent is told of: "INDEX NAME".
  std::vector<std::string> devices() const {
    std::vector<std::string> all;
    for (const auto& [key, device] : kernel->interfaces())
      all.push_back(std::to_string(key.ifIndex) + " " + device.str());
    return all;
  }
  // Those that can be an interface of the switch.
  std::vector<std::string> interfaces() const {
    std::vector<std::string> all;
    for (const auto& [id, local] : localDir->intfStatusLocals()) all.push_back(id.name().str());
    return all;
  }

  const KernelNetInfo::Status::Ptr kernel = rt::make<KernelNetInfo::Status>();
  const Interface::AllIntfStatusLocalDir::Ptr localDir =
      rt::make<Interface::AllIntfStatusLocalDir>();
  const HostStatus::Ptr status = rt::make<HostStatus>();
  const Interface::DeviceIntfStatusDir::Ptr present = rt::make<Interface::DeviceIntfStatusDir>();
  const rt::Ptr<PresenceThrower> agent = rt::make<PresenceThrower>(present);
  const InterfaceNames::Ptr names = rt::make<InterfaceNames>(
      localDir, status, present, [](const auto&) {}, [] { return 1; });
  const Interface::NetNsIntfStatusManager::Ptr manager =
      rt::make<Interface::NetNsIntfStatusManager>(rt::make<Interface::AllIntfStatusDir>(), localDir,
                                                  /*filterByNetNs=*/false, present, kernel,
                                                  rt::NamespaceName::defaultNamespace());
  std::vector<std::string> macvtaps;  // that were told of
  LinkRecords records{
      kernel,
      names,
      {.deviceIs =
           [this](uint32_t ifIndex, const rt::String& name, rt::EthAddr address) {
             macvtaps.push_back(std::to_string(ifIndex) + " " + name.str() + " " +
                                address.text().str());
           },
       .deviceDel =
           [this](uint32_t ifIndex) { macvtaps.push_back(std::to_string(ifIndex) + " gone"); }}};
};

TEST_F(LinkRecordsTest, HaveAllDevicesAndTheInterfacesAmongThem) {
  records.linksAre({{1, {"lo", false}}, {2, {"eth0", true}}, {7, {"macvtap0", false}}});
  EXPECT_THAT(devices(), ElementsAre("1 lo", "2 eth0", "7 macvtap0"));
  EXPECT_THAT(interfaces(), ElementsAre("eth0"));
}

TEST_F(LinkRecordsTest, LoseWhatIsGone) {
  records.linksAre({{2, {"eth0", true}}, {3, {"eth1", true}}});
  records.linksAre({{3, {"eth1", true}}});
  EXPECT_THAT(devices(), ElementsAre("3 eth1"));
  EXPECT_THAT(interfaces(), ElementsAre("eth1"));
}

TEST_F(LinkRecordsTest, TellOfADeviceAfterItsInterfaceIsKnownAndBeforeItIsForgotten) {
  const auto recorder = rt::make<rt::fakes::ChangeRecorder>();
  recorder->watch(kernel);
  recorder->watch(localDir);
  records.linksAre({{2, {"eth0", true}}});
  EXPECT_THAT(recorder->take(),
              ElementsAre(StartsWith("Interface::"), StartsWith("KernelNetInfo::")));
  records.linksAre({});
  EXPECT_THAT(recorder->take(),
              ElementsAre(StartsWith("KernelNetInfo::"), StartsWith("Interface::")));
}

TEST_F(LinkRecordsTest, TellNothingOfWhatStaysAsItWas) {
  records.linksAre({{1, {"lo", false}}, {2, {"eth0", true}}});
  const auto recorder = rt::make<rt::fakes::ChangeRecorder>();
  recorder->watch(kernel);
  recorder->watch(localDir);
  records.linksAre({{1, {"lo", false}}, {2, {"eth0", true}}});
  EXPECT_THAT(recorder->take(), IsEmpty());
}

TEST_F(LinkRecordsTest, FollowADeviceThatIsRenamed) {
  records.linksAre({{2, {"eth0", true}}});
  records.linksAre({{2, {"uplink", true}}});
  EXPECT_THAT(devices(), ElementsAre("2 uplink"));
  EXPECT_THAT(interfaces(), ElementsAre("uplink"));
}

TEST_F(LinkRecordsTest, FollowANameThatPassesToAnotherDevice) {
  records.linksAre({{3, {"eth0", true}}});
  records.linksAre({{2, {"eth0", true}}});
  EXPECT_THAT(devices(), ElementsAre("2 eth0"));
  EXPECT_THAT(interfaces(), ElementsAre("eth0"));
}

TEST_F(LinkRecordsTest, FollowTwoDevicesThatChangeNames) {
  records.linksAre({{2, {"eth0", true}}, {3, {"eth1", true}}});
  records.linksAre({{2, {"eth1", true}}, {3, {"eth0", true}}});
  EXPECT_THAT(devices(), ElementsAre("2 eth1", "3 eth0"));
  EXPECT_THAT(interfaces(), ElementsAre("eth0", "eth1"));
}

TEST_F(LinkRecordsTest, TellOfADeviceThatWasMadeAnewAsOneThatWentAndOneThatCame) {
  records.linksAre({{2, {"eth0", true}}});
  const auto recorder = rt::make<rt::fakes::ChangeRecorder>();
  recorder->watch(kernel);
  recorder->watch(localDir);
  records.linksAre({{2, {"eth0", true, 1}}});
  EXPECT_THAT(recorder->take(),
              ElementsAre(StartsWith("KernelNetInfo::"), StartsWith("Interface::"),
                          StartsWith("Interface::"), StartsWith("KernelNetInfo::")));
  EXPECT_THAT(devices(), ElementsAre("2 eth0"));
}

TEST_F(LinkRecordsTest, TellOfAMacvtapOnceAndWhenItIsAnotherOrHasAnotherAddress) {
  const auto macvtap = [](const char* address, uint32_t before) {
    return KernelLink{"macvtap0", false, before, rt::EthAddr(rt::String(address))};
  };
  records.linksAre({{2, {"eth0", true}}, {7, macvtap("52:54:00:12:34:01", 0)}});
  records.linksAre({{7, macvtap("52:54:00:12:34:01", 0)}});
  EXPECT_THAT(macvtaps, ElementsAre("7 macvtap0 52:54:00:12:34:01"));
  records.linksAre({{7, macvtap("52:54:00:12:34:01", 1)}});
  records.linksAre({{7, macvtap("52:54:00:12:34:02", 1)}});
  EXPECT_THAT(macvtaps,
              ElementsAre("7 macvtap0 52:54:00:12:34:01", "7 gone", "7 macvtap0 52:54:00:12:34:01",
                          "7 gone", "7 macvtap0 52:54:00:12:34:02"));
}

TEST_F(LinkRecordsTest, TellOfAMacvtapThatIsGone) {
  records.linksAre({{2, {"eth0", true}}, {7, {"macvtap0", false, 0, rt::EthAddr()}}});
  macvtaps.clear();
  records.linksAre({});
  EXPECT_THAT(macvtaps, ElementsAre("7 gone"));
}

TEST_F(LinkRecordsTest, ShowACarrierThatComesAndGoesAsOneOfTheSameDevice) {
  const auto link = [](bool hasCarrier) {
    return KernelLink{"eth0", true, 0, std::nullopt, hasCarrier};
  };
  records.linksAre({{2, link(true)}});
  EXPECT_TRUE(status->interfaceStatus("eth0")->carrier());
  const auto recorder = rt::make<rt::fakes::ChangeRecorder>();
  recorder->watch(kernel);
  recorder->watch(localDir);
  records.linksAre({{2, link(false)}});
  EXPECT_FALSE(status->interfaceStatus("eth0")->carrier());
  records.linksAre({{2, link(true)}});
  EXPECT_TRUE(status->interfaceStatus("eth0")->carrier());
  EXPECT_THAT(recorder->take(), IsEmpty());
}

TEST_F(LinkRecordsTest, GiveACarrierToTheNextDeviceOfANameOnlyIfItHasOne) {
  records.linksAre({{2, {"eth0", true, 0, std::nullopt, true}}});
  records.linksAre({{3, {"eth0", true}}});
  EXPECT_FALSE(status->interfaceStatus("eth0")->carrier());
}

TEST_F(LinkRecordsTest, TellOfAllOthersWhenSomebodyThrows) {
  const auto thrower = rt::make<DeviceThrower>(kernel, 2U);
  EXPECT_THROW(records.linksAre({{2, {"eth0", true}}, {3, {"eth1", true}}}), rt::Exception);
  EXPECT_THAT(devices(), ElementsAre("2 eth0", "3 eth1"));
  EXPECT_THROW(records.linksAre({{3, {"eth1", true}}, {4, {"eth2", true}}}), rt::Exception);
  EXPECT_THAT(devices(), ElementsAre("3 eth1", "4 eth2"));
  EXPECT_THAT(interfaces(), ElementsAre("eth1", "eth2"));
}

TEST_F(LinkRecordsTest, ShowWhatIsSoThoughWhoHeardOfItFirstThrew) {
  std::vector<std::string> heard;
  names->listenerIs([&](const rt::String& id) {
    const auto record = status->interfaceStatus(id);
    heard.push_back(id.str() + (record && record->present() ? " there" : " gone"));
  });
  names->rowIs("Vlan1", R"({"deviceName":"eth0"})");
  agent->throws = true;
  EXPECT_THROW(records.linksAre({{2, {"eth0", true}}, {3, {"eth1", true}}}), rt::Exception);
  EXPECT_TRUE(status->interfaceStatus("eth1")->present());
  EXPECT_TRUE(status->interfaceStatus("Vlan1")->present());
  EXPECT_THAT(heard, Contains("eth1 there"));
  heard.clear();
  EXPECT_THROW(records.linksAre({}), rt::Exception);
  EXPECT_FALSE(status->interfaceStatus("Vlan1")->present());
  EXPECT_THAT(heard, Contains("eth1 gone"));
}

TEST_F(LinkRecordsTest, AreTheKernelsFromTheBeginning) {
  const rt::ActivityManager manager;
  const auto links = rt::make<KernelLinks>(
      kernel, names, LinkRecords::MacvtapSink{[](auto...) {}, [](auto) {}}, [] {});
  EXPECT_THAT(devices(), Contains("1 lo"));
  EXPECT_THAT(interfaces(), testing::Not(Contains("lo")));
}

}  // namespace
}  // namespace host
