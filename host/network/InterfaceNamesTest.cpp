// Which kernel device each interface is.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/network/InterfaceNames.h"
#include "runtime/interfaces/NetNsIntfStatusManager.h"

namespace host {

// Notes what whoever hears of a device knows of its interface.
class OrderObserver final : public rt::StateMachineOf<OrderObserver> {
 public:
  OrderObserver(Interface::AllIntfStatusLocalDir::Ptr localDir,
                Interface::DeviceIntfStatusDir::Ptr present)
      : localDir_(std::move(localDir)), present_(*this, std::move(present)) {}

  std::vector<std::string> heard;

  static constexpr std::string_view typeName = "OrderObserver";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &OrderObserver::initialized>>;

 private:
  void handlePresent(const rt::IntfId& id) {
    const bool isPresent = present_->intfStatusAndDeviceNameHas(id);
    heard.push_back(id.name().str() + (isPresent ? " comes, " : " goes, ") +
                    (localDir_->intfStatusLocalHas(id) ? "known" : "unknown"));
  }

  const Interface::AllIntfStatusLocalDir::Ptr localDir_;
  rt::Reactor<OrderObserver, Interface::DeviceIntfStatusDir,
              rt::On<&Interface::DeviceIntfStatusDir::intfStatusAndDeviceName,
                     &OrderObserver::handlePresent>>
      present_;
};

// Somebody who cannot bear to hear of an interface.
class Thrower final : public rt::StateMachineOf<Thrower> {
 public:
  explicit Thrower(Interface::AllIntfStatusLocalDir::Ptr localDir)
      : localDir_(*this, std::move(localDir)) {}

  static constexpr std::string_view typeName = "Thrower";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &Thrower::initialized>>;

 private:
  void handleLocal(const rt::IntfId& /*id*/) { throw rt::Exception("no more descriptors"); }

  rt::Reactor<Thrower, Interface::AllIntfStatusLocalDir,
              rt::On<&Interface::AllIntfStatusLocalDir::intfStatusLocal, &Thrower::handleLocal>>
      localDir_;
};

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

// The rows and devices as the daemon tells of them, and the agent's manager that joins them.
class InterfaceNamesTest : public testing::Test {
 protected:
  void row(const char* id, const char* doc) { names->rowIs(id, rt::String(doc)); }
  void rowDel(const char* id) { names->rowIs(id, std::nullopt); }
  void comes(const char* device, uint32_t ifIndex) {
    names->deviceIs(device);
    kernel->interfaceIs({rt::NamespaceName::defaultNamespace(), ifIndex}, device);
  }
  void goes(const char* device, uint32_t ifIndex) {
    kernel->interfaceDel({rt::NamespaceName::defaultNamespace(), ifIndex});
    names->deviceDel(device);
  }
  // The device that the agent takes the interface for; empty for none.
  std::string device(const char* id) const {
    const auto local = localDir->intfStatusLocal(rt::IntfId(id));
    return local ? local->deviceName.str() : "";
  }
  // "DEVICE present", "DEVICE absent"; empty without a record.
  std::string shown(const char* id) const {
    const auto record = status->interfaceStatus(id);
    if (!record) return "";
    return record->deviceName().str() + (record->present() ? " present" : " absent");
  }
  // "carrier since TIME", "none since TIME".
  std::string line(const char* id) const {
    const auto record = status->interfaceStatus(id);
    return (record->carrier() ? "carrier since " : "none since ") + std::to_string(record->since());
  }
  std::string problem(const char* id) const { return status->interfaceStatus(id)->problem().str(); }

  const Interface::AllIntfStatusDir::Ptr all = rt::make<Interface::AllIntfStatusDir>();
  const Interface::AllIntfStatusLocalDir::Ptr localDir =
      rt::make<Interface::AllIntfStatusLocalDir>();
  const Interface::DeviceIntfStatusDir::Ptr present = rt::make<Interface::DeviceIntfStatusDir>();
  const KernelNetInfo::Status::Ptr kernel = rt::make<KernelNetInfo::Status>();
  const HostStatus::Ptr status = rt::make<HostStatus>();
  bool cannotWithdraw = false;
  uint64_t now = 100;
  const std::map<rt::String, InterfaceNames::Before> before{
      {"eth8", {.present = true, .carrier = true, .since = 7}},
      {"eth9", {.present = true, .carrier = false, .since = 9}}};
  std::vector<std::string> withdrawn;  // "ID from DEVICE"
  const InterfaceNames::Ptr names = rt::make<InterfaceNames>(
      localDir, status, present,
      [this](const rt::String& id) {
        withdrawn.push_back(id.str() + " from " + device(id.charPtr()));
        if (cannotWithdraw) throw rt::Exception("the kernel does not answer");
      },
      [this] { return now; }, before);
  const Interface::NetNsIntfStatusManagerRoot::Ptr root =
      rt::make<Interface::NetNsIntfStatusManagerRoot>(all, localDir, /*filterByNetNs=*/false);
  const Interface::NetNsIntfStatusManager::Ptr manager =
      root->intfStatusManagerIs(present, kernel, {});
};

TEST_F(InterfaceNamesTest, TakeADeviceForTheInterfaceOfItsName) {
  comes("eth0", 2);
  EXPECT_EQ(device("eth0"), "eth0");
  EXPECT_EQ(shown("eth0"), "eth0 present");
  EXPECT_EQ(problem("eth0"), "");
}

TEST_F(InterfaceNamesTest, ForgetAnInterfaceWhoseDeviceHasGone) {
  comes("eth0", 2);
  goes("eth0", 2);
  EXPECT_EQ(device("eth0"), "");
  EXPECT_EQ(shown("eth0"), "");
}

TEST_F(InterfaceNamesTest, TakeAnInterfaceForTheDeviceOfItsRow) {
  row("Vlan100", R"({"deviceName":"br0.100"})");
  EXPECT_EQ(device("Vlan100"), "br0.100");
  EXPECT_EQ(shown("Vlan100"), "br0.100 absent");
  comes("br0.100", 5);
  EXPECT_EQ(shown("Vlan100"), "br0.100 present");
  EXPECT_EQ(shown("br0.100"), "br0.100 present") << "it is an interface of its own, too";
  goes("br0.100", 5);
  EXPECT_EQ(shown("Vlan100"), "br0.100 absent");
}

TEST_F(InterfaceNamesTest, PreferTheRowToTheDeviceOfThatName) {
  comes("Vlan100", 3);
  row("Vlan100", R"({"deviceName":"br0.100"})");
  EXPECT_EQ(shown("Vlan100"), "br0.100 absent");
  rowDel("Vlan100");
  EXPECT_EQ(shown("Vlan100"), "Vlan100 present");
}

TEST_F(InterfaceNamesTest, KeepARowsDeviceWhenTheDeviceOfItsNameGoes) {
  row("Vlan100", R"({"deviceName":"br0.100"})");
  comes("Vlan100", 3);
  goes("Vlan100", 3);
  EXPECT_EQ(device("Vlan100"), "br0.100");
}

TEST_F(InterfaceNamesTest, ForgetAnInterfaceWhoseRowIsGone) {
  row("Vlan100", R"({"deviceName":"br0.100"})");
  rowDel("Vlan100");
  EXPECT_EQ(device("Vlan100"), "");
  EXPECT_EQ(shown("Vlan100"), "");
}

TEST_F(InterfaceNamesTest, FollowARowThatChanges) {
  comes("br0.100", 5);
  comes("br1.100", 6);
  row("Vlan100", R"({"deviceName":"br0.100"})");
  row("Vlan100", R"({"deviceName":"br1.100"})");
  EXPECT_EQ(shown("Vlan100"), "br1.100 present");
  EXPECT_EQ(present->intfStatusAndDeviceName(rt::IntfId("Vlan100"))->ifIndex, 6U);
}

TEST_F(InterfaceNamesTest, SayBeforeAnInterfaceLosesADeviceThatIsThere) {
  comes("br0.100", 5);
  row("Vlan100", R"({"deviceName":"br0.100"})");
  row("Vlan100", R"({"deviceName":"br1.100"})");
  EXPECT_THAT(withdrawn, ElementsAre("Vlan100 from br0.100"));
}

TEST_F(InterfaceNamesTest, ChangeAlsoWhenWhatIsToBeDoneBeforeFails) {
  comes("br0.100", 5);
  row("Vlan100", R"({"deviceName":"br0.100"})");
  cannotWithdraw = true;
  EXPECT_THROW(row("Vlan100", R"({"deviceName":"br1.100"})"), rt::Exception);
  EXPECT_EQ(device("Vlan100"), "br1.100");
  EXPECT_EQ(shown("Vlan100"), "br1.100 absent");
}

TEST_F(InterfaceNamesTest, SayNothingOfAnInterfaceWhoseDeviceHasGoneOrStays) {
  comes("eth0", 2);
  row("eth0", R"({"deviceName":"eth0"})");
  goes("eth0", 2);
  rowDel("eth0");
  EXPECT_THAT(withdrawn, testing::IsEmpty());
}

TEST_F(InterfaceNamesTest, LeaveAnInterfaceWhatItWasWhenItsRowIsRefused) {
  row("Vlan100", R"({"deviceName":"br0.100"})");
  row("Vlan100", R"({"deviceName":"a device of some length"})");
  EXPECT_EQ(device("Vlan100"), "br0.100");
  EXPECT_EQ(problem("Vlan100"),
            "deviceName: 'a device of some length' is refused: must be a kernel device's name, 1 "
            "to 15 bytes");
  row("Vlan100", R"({"deviceName":"br1.100"})");
  EXPECT_EQ(problem("Vlan100"), "");
}

TEST_F(InterfaceNamesTest, ShowARefusedRowAlsoWhenTheInterfaceIsNone) {
  row("Vlan100", R"({"deviceName":""})");
  EXPECT_EQ(device("Vlan100"), "");
  EXPECT_EQ(shown("Vlan100"), " absent");
  EXPECT_THAT(problem("Vlan100"), HasSubstr("deviceName: '' is refused"));
  rowDel("Vlan100");
  EXPECT_EQ(shown("Vlan100"), "");
}

TEST_F(InterfaceNamesTest, LeaveADeviceItsNameWhenTheRowOfThatNameIsRefused) {
  comes("eth0", 2);
  row("eth0", R"({"deviceName":"a/b"})");
  EXPECT_EQ(shown("eth0"), "eth0 present");
  EXPECT_THAT(problem("eth0"), HasSubstr("'a/b' is refused"));
}

TEST_F(InterfaceNamesTest, RefuseADeviceThatTheKernelCannotName) {
  for (const char* name :
       {"a/b", "a:b", "a b", R"(a\tb)", R"(a\nb)", R"(a\u0000b)", ".", "..", "sixteen-letters-"}) {
    row("Vlan100", (std::string(R"({"deviceName":")") + name + "\"}").c_str());
    EXPECT_EQ(device("Vlan100"), "") << name;
    EXPECT_THAT(problem("Vlan100"),
                HasSubstr(" is refused: must be a kernel device's name, 1 to 15 bytes"))
        << name;
  }
}

TEST_F(InterfaceNamesTest, TakeADeviceOfAnyNameThatTheKernelKnows) {
  for (const char* name : {"a", "fifteen-letters", "~a~", "...", "\xc3\xa9th0", "a@b"}) {
    row("Vlan100", (std::string(R"({"deviceName":")") + name + "\"}").c_str());
    EXPECT_EQ(device("Vlan100"), name);
    EXPECT_EQ(problem("Vlan100"), "") << name;
  }
}

TEST_F(InterfaceNamesTest, SayAllThatIsWrongWithARow) {
  row("Vlan0", R"({"deviceName":".."})");
  EXPECT_THAT(problem("Vlan0"), StartsWith("interface: 'Vlan0' is refused: must be Vlan1 to"));
  EXPECT_THAT(problem("Vlan0"), HasSubstr("; deviceName: '..' is refused"));
  EXPECT_EQ(device("Vlan0"), "");
}

TEST_F(InterfaceNamesTest, RefuseARowWithAFieldThatIsNotKnown) {
  row("Vlan1", R"({"device":"eth0"})");
  EXPECT_THAT(problem("Vlan1"), HasSubstr("device: 'eth0' is refused"));
}

TEST_F(InterfaceNamesTest, TellOfAFlapAsIfTheDeviceHadGoneAndCome) {
  comes("eth0", 2);
  const auto observer = rt::make<OrderObserver>(localDir, present);
  names->flap("eth0");
  EXPECT_THAT(observer->heard, ElementsAre("eth0 goes, unknown", "eth0 comes, known"));
  names->flap("eth9");
  EXPECT_EQ(observer->heard.size(), 2U) << "there is none";
}

TEST_F(InterfaceNamesTest, TellThatAFlapIsOverAlsoWhenSomebodyThrows) {
  comes("eth0", 2);
  const auto thrower = rt::make<Thrower>(localDir);
  EXPECT_THROW(names->flap("eth0"), rt::Exception);
  EXPECT_TRUE(present->intfStatusAndDeviceNameHas(rt::IntfId("eth0")));
}

TEST_F(InterfaceNamesTest, AreKnownToWhoeverHearsOfADevice) {
  const auto observer = rt::make<OrderObserver>(localDir, present);
  comes("eth0", 2);
  goes("eth0", 2);
  EXPECT_THAT(observer->heard, ElementsAre("eth0 comes, known", "eth0 goes, known"));
}

TEST_F(InterfaceNamesTest, AreShownAlsoWhenSomebodyThrowsWhoHearsOfThem) {
  const auto thrower = rt::make<Thrower>(localDir);
  EXPECT_THROW(row("Vlan100", R"({"deviceName":"br0.100"})"), rt::Exception);
  EXPECT_EQ(device("Vlan100"), "br0.100");
  EXPECT_EQ(shown("Vlan100"), "br0.100 absent");
}

TEST_F(InterfaceNamesTest, ShowTheCarrierOfTheirDeviceAndSinceWhen) {
  row("Vlan100", R"({"deviceName":"br0.100"})");
  EXPECT_EQ(line("Vlan100"), "none since 100");
  now = 101;
  names->carrierIs("br0.100", true);
  EXPECT_EQ(line("Vlan100"), "none since 100") << "it is not there";
  comes("br0.100", 5);
  EXPECT_EQ(line("Vlan100"), "carrier since 101");
  EXPECT_EQ(line("br0.100"), "carrier since 101");
  now = 102;
  names->carrierIs("br0.100", false);
  EXPECT_EQ(line("Vlan100"), "none since 102");
  EXPECT_EQ(line("br0.100"), "none since 102");
  now = 103;
  names->carrierIs("br0.100", false);
  EXPECT_EQ(line("Vlan100"), "none since 102");
  goes("br0.100", 5);
  EXPECT_EQ(line("Vlan100"), "none since 103");
}

TEST_F(InterfaceNamesTest, HaveTheTimeOfAnEarlierDaemonForWhatIsAsItWasThen) {
  names->carrierIs("eth8", true);
  comes("eth8", 2);
  names->carrierIs("eth9", true);
  comes("eth9", 3);
  names->hasBegun();
  EXPECT_EQ(line("eth8"), "carrier since 7");
  EXPECT_EQ(line("eth9"), "carrier since 100") << "it had none";
  names->carrierIs("eth8", false);
  names->carrierIs("eth8", true);
  EXPECT_EQ(line("eth8"), "carrier since 100");
}

TEST_F(InterfaceNamesTest, TellOfEachThatComesGoesOrHasAnotherCarrier) {
  std::vector<std::string> heard;
  names->listenerIs([&](const rt::String& id) { heard.push_back(id.str()); });
  comes("eth0", 2);
  EXPECT_THAT(std::exchange(heard, {}), testing::Contains("eth0"));
  names->carrierIs("eth0", true);
  EXPECT_THAT(std::exchange(heard, {}), ElementsAre("eth0"));
  goes("eth0", 2);
  EXPECT_THAT(heard, testing::Contains("eth0"));
}

TEST_F(InterfaceNamesTest, AreAsTheyWereAfterAFlap) {
  names->carrierIs("eth0", true);
  comes("eth0", 2);
  now = 200;
  names->flap("eth0");
  EXPECT_EQ(line("eth0"), "carrier since 100");
}

}  // namespace
}  // namespace host
