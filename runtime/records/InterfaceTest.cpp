#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runtime/entity/Reactor.h"
#include "runtime/fakes/ChangeRecorder.h"
#include "runtime/records/Interface.h"

namespace Interface {
namespace {

using rt::attributeText;
using rt::attributeTextIs;
using rt::IntfId;
using rt::NamespaceName;
using rt::fakes::ChangeRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

const IntfId vlan100("Vlan100");

TEST(InterfaceTest, ANewOneHasItsIdAndNoDevice) {
  const auto status = rt::make<IntfStatus>(vlan100);
  EXPECT_EQ(status->intfId(), vlan100);
  EXPECT_EQ(status->deviceName(), "");
}

TEST(InterfaceTest, ItsDeviceIsReadAndWrittenByName) {
  const auto status = rt::make<IntfStatus>(vlan100);
  attributeTextIs(*status, "deviceName", "br0.100");
  EXPECT_EQ(status->deviceName(), "br0.100");
  EXPECT_EQ(attributeText(*status, "deviceName"), "br0.100");
  EXPECT_EQ(attributeText(*status, "intfId"), "Vlan100");
  EXPECT_THROW(attributeTextIs(*status, "intfId", "Vlan1"), rt::AttributeException);
}

TEST(InterfaceTest, AnotherDeviceIsToldOnce) {
  const auto status = rt::make<IntfStatus>(vlan100);
  const auto recorder = rt::make<ChangeRecorder>();
  recorder->watch(status);
  status->deviceNameIs("eth0");
  status->deviceNameIs("eth0");
  EXPECT_THAT(recorder->take(), ElementsAre("Interface::IntfStatus.deviceName = eth0"));
}

}  // namespace

// The directory. This machine follows one as whoever knows only the base class does.

class DirectoryFollower final : public rt::StateMachineOf<DirectoryFollower> {
 public:
  explicit DirectoryFollower(IntfStatusPtrDir::Ptr directory)
      : directory_(*this, std::move(directory)) {}

  const std::vector<std::string>& told() const { return told_; }

  static constexpr std::string_view typeName = "DirectoryFollower";
  using Attributes =
      rt::AttributeTable<rt::Attribute<"initialized", &DirectoryFollower::initialized>>;

 private:
  void handleIntfStatus(const IntfId& id) {
    told_.push_back(id.name().str() + (directory_->intfStatusHas(id) ? " is there" : " is gone"));
  }

  std::vector<std::string> told_;
  rt::Reactor<DirectoryFollower, IntfStatusPtrDir,
              rt::On<&IntfStatusPtrDir::intfStatus, &DirectoryFollower::handleIntfStatus>>
      directory_;
};

namespace {

TEST(AllIntfStatusDirTest, ServesAsADirectoryOfInterfaces) {
  const auto all = rt::make<AllIntfStatusDir>();
  const IntfStatusPtrDir::Ptr directory = all;
  const auto follower = rt::make<DirectoryFollower>(all);
  const auto status = all->intfStatusIs(vlan100);
  EXPECT_EQ(directory->intfStatus(vlan100), status);
  directory->intfStatusDel(vlan100);
  EXPECT_FALSE(all->intfStatusHas(vlan100));
  EXPECT_THAT(follower->told(), ElementsAre("Vlan100 is there", "Vlan100 is gone"));
}

TEST(AllIntfStatusDirTest, IsOfItsOwnType) {
  const auto all = rt::make<AllIntfStatusDir>();
  EXPECT_EQ(all->type().name, "Interface::AllIntfStatusDir");
  EXPECT_EQ(rt::make<IntfStatusPtrDir>()->type().name, "Interface::IntfStatusPtrDir");
}

TEST(AllIntfStatusDirTest, InterfacesAreKeyedByIdAndReleasedByRemoval) {
  const auto all = rt::make<AllIntfStatusDir>();
  const auto status = all->intfStatusIs(vlan100);
  EXPECT_EQ(status->intfId(), vlan100);
  EXPECT_EQ(all->intfStatusIs(vlan100), status);
  EXPECT_EQ(all->intfStatus(IntfId("Vlan1")), nullptr);
  EXPECT_EQ(all->intfStatusDel(vlan100), status);
  EXPECT_EQ(status->references(), 1U);
  all->intfStatusIs(vlan100);
  all->intfStatusDelAll();
  EXPECT_TRUE(all->intfStatuses().empty());
}

TEST(AllIntfStatusDirTest, AMountedInterfaceIsFilledBeforeItIsTold) {
  const auto all = rt::make<AllIntfStatusDir>();
  const auto recorder = rt::make<ChangeRecorder>();
  recorder->watch(all);
  const auto status = rt::make<IntfStatus>(vlan100);
  status->deviceNameIs("br0.100");
  EXPECT_THAT(recorder->take(), IsEmpty());
  all->intfStatusMount(status);
  EXPECT_THAT(recorder->take(), ElementsAre("Interface::AllIntfStatusDir.intfStatus[Vlan100]"));
  EXPECT_EQ(all->intfStatus(vlan100)->deviceName(), "br0.100");
}

TEST(AllIntfStatusDirTest, InterfacesAreListedMadeAndRemovedByName) {
  const auto all = rt::make<AllIntfStatusDir>();
  const rt::AttributeInfo& statuses = *all->type().find("intfStatus");
  statuses.memberIs(*all, "Vlan100",
                    [](rt::Entity& status) { attributeTextIs(status, "deviceName", "br0.100"); });
  EXPECT_THAT(statuses.keys(*all), ElementsAre("Vlan100"));
  EXPECT_EQ(statuses.member(*all, "Vlan100"), all->intfStatus(vlan100));
  EXPECT_EQ(all->intfStatus(vlan100)->deviceName(), "br0.100");
  statuses.memberDel(*all, "Vlan100");
  EXPECT_TRUE(all->intfStatuses().empty());
}

// Which device an interface is.

TEST(IntfStatusLocalTest, ItsTextIsReadBack) {
  const IntfStatusLocal local{"br0.100", NamespaceName("blue")};
  EXPECT_EQ(local.text(), "br0.100 blue");
  EXPECT_EQ(IntfStatusLocal::fromText("br0.100 blue"), local);
  EXPECT_EQ(IntfStatusLocal().text(), " default");
  EXPECT_EQ(IntfStatusLocal::fromText(" default"), IntfStatusLocal());
}

TEST(IntfStatusLocalTest, MalformedTextIsRefused) {
  for (const char* text : {"", "eth0", "eth0 "}) {
    EXPECT_EQ(IntfStatusLocal::fromText(text), std::nullopt) << text;
  }
}

TEST(AllIntfStatusLocalDirTest, IsKeyedById) {
  const auto directory = rt::make<AllIntfStatusLocalDir>();
  const IntfStatusLocal local{"br0.100", {}};
  directory->intfStatusLocalIs(vlan100, local);
  EXPECT_TRUE(directory->intfStatusLocalHas(vlan100));
  EXPECT_EQ(directory->intfStatusLocal(vlan100), local);
  EXPECT_EQ(directory->intfStatusLocal(IntfId("Vlan1")), std::nullopt);
  EXPECT_EQ(directory->intfStatusLocals().size(), 1U);
  directory->intfStatusLocalDel(vlan100);
  EXPECT_FALSE(directory->intfStatusLocalHas(vlan100));
}

TEST(AllIntfStatusLocalDirTest, AChangeIsToldAndTheSameValueAgainIsNot) {
  const auto directory = rt::make<AllIntfStatusLocalDir>();
  const auto recorder = rt::make<ChangeRecorder>();
  recorder->watch(directory);
  directory->intfStatusLocalIs(vlan100, {"eth0", {}});
  directory->intfStatusLocalIs(vlan100, {"eth0", {}});
  EXPECT_THAT(recorder->take(),
              ElementsAre("Interface::AllIntfStatusLocalDir.intfStatusLocal[Vlan100]"));
  directory->intfStatusLocalIs(vlan100, {"eth0", NamespaceName("blue")});
  EXPECT_THAT(recorder->take(),
              ElementsAre("Interface::AllIntfStatusLocalDir.intfStatusLocal[Vlan100]"));
}

TEST(AllIntfStatusLocalDirTest, IsReadAndRemovedByName) {
  const auto directory = rt::make<AllIntfStatusLocalDir>();
  directory->intfStatusLocalIs(vlan100, {"br0.100", {}});
  const rt::AttributeInfo& locals = *directory->type().find("intfStatusLocal");
  EXPECT_THAT(locals.keys(*directory), ElementsAre("Vlan100"));
  EXPECT_EQ(locals.memberText(*directory, "Vlan100"), "br0.100 default");
  locals.memberDel(*directory, "Vlan100");
  EXPECT_TRUE(directory->intfStatusLocals().empty());
}

// Which devices there are.

TEST(IntfStatusAndDeviceNameTest, ItsTextIsReadBack) {
  const IntfStatusAndDeviceName device{"br0.100", 4294967295};
  EXPECT_EQ(device.text(), "br0.100 4294967295");
  EXPECT_EQ(IntfStatusAndDeviceName::fromText("br0.100 4294967295"), device);
  EXPECT_EQ(IntfStatusAndDeviceName().text(), " 0");
  EXPECT_EQ(IntfStatusAndDeviceName::fromText(" 0"), IntfStatusAndDeviceName());
}

TEST(IntfStatusAndDeviceNameTest, MalformedTextIsRefused) {
  for (const char* text : {"", "7", "eth0", "eth0 ", "eth0 -1", "eth0 x", "eth0 4294967296"}) {
    EXPECT_EQ(IntfStatusAndDeviceName::fromText(text), std::nullopt) << text;
  }
}

TEST(DeviceIntfStatusDirTest, IsKeyedById) {
  const auto directory = rt::make<DeviceIntfStatusDir>();
  const IntfStatusAndDeviceName device{"br0.100", 7};
  directory->intfStatusAndDeviceNameIs(vlan100, device);
  EXPECT_TRUE(directory->intfStatusAndDeviceNameHas(vlan100));
  EXPECT_EQ(directory->intfStatusAndDeviceName(vlan100), device);
  EXPECT_EQ(directory->intfStatusAndDeviceName(IntfId("Vlan1")), std::nullopt);
  EXPECT_EQ(directory->intfStatusAndDeviceNames().size(), 1U);
  directory->intfStatusAndDeviceNameDel(vlan100);
  EXPECT_FALSE(directory->intfStatusAndDeviceNameHas(vlan100));
}

TEST(DeviceIntfStatusDirTest, AnotherIfindexIsAChange) {
  const auto directory = rt::make<DeviceIntfStatusDir>();
  directory->intfStatusAndDeviceNameIs(vlan100, {"br0.100", 7});
  const auto recorder = rt::make<ChangeRecorder>();
  recorder->watch(directory);
  directory->intfStatusAndDeviceNameIs(vlan100, {"br0.100", 7});
  EXPECT_THAT(recorder->take(), IsEmpty());
  directory->intfStatusAndDeviceNameIs(vlan100, {"br0.100", 8});
  EXPECT_THAT(recorder->take(),
              ElementsAre("Interface::DeviceIntfStatusDir.intfStatusAndDeviceName[Vlan100]"));
}

TEST(DeviceIntfStatusDirTest, IsReadAndRemovedByName) {
  const auto directory = rt::make<DeviceIntfStatusDir>();
  directory->intfStatusAndDeviceNameIs(vlan100, {"br0.100", 7});
  const rt::AttributeInfo& devices = *directory->type().find("intfStatusAndDeviceName");
  EXPECT_THAT(devices.keys(*directory), ElementsAre("Vlan100"));
  EXPECT_EQ(devices.memberText(*directory, "Vlan100"), "br0.100 7");
  devices.memberDel(*directory, "Vlan100");
  EXPECT_TRUE(directory->intfStatusAndDeviceNames().empty());
}

}  // namespace
}  // namespace Interface
