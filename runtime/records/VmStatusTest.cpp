#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runtime/fakes/ChangeRecorder.h"
#include "runtime/records/VmStatus.h"

namespace Vm {
namespace {

using rt::attributeText;
using rt::attributeTextIs;
using rt::fakes::ChangeRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(VmStatusTest, ANewOneHasItsNameAndElseNothing) {
  const auto vm = rt::make<VmStatus>("web1");
  EXPECT_EQ(vm->name(), "web1");
  EXPECT_FALSE(vm->enabled());
  EXPECT_EQ(vm->state(), "");
  EXPECT_EQ(vm->consolePtyPath(), "");
  EXPECT_EQ(vm->cmdStatusStr(), "");
}

TEST(VmStatusTest, EachAttributeIsReadByName) {
  const auto vm = rt::make<VmStatus>("web1");
  vm->enabledIs(true);
  vm->stateIs("Running");
  vm->consolePtyPathIs("/dev/pts/3");
  vm->cmdStatusStrIs("done");
  EXPECT_EQ(attributeText(*vm, "name"), "web1");
  EXPECT_EQ(attributeText(*vm, "enabled"), "true");
  EXPECT_EQ(attributeText(*vm, "state"), "Running");
  EXPECT_EQ(attributeText(*vm, "consolePtyPath"), "/dev/pts/3");
  EXPECT_EQ(attributeText(*vm, "cmdStatusStr"), "done");
}

TEST(VmStatusTest, EachAttributeButTheNameIsWrittenByName) {
  const auto vm = rt::make<VmStatus>("web1");
  attributeTextIs(*vm, "enabled", "true");
  attributeTextIs(*vm, "state", "Stopped");
  attributeTextIs(*vm, "consolePtyPath", "/dev/pts/3");
  attributeTextIs(*vm, "cmdStatusStr", "line 1\nline 2");
  EXPECT_TRUE(vm->enabled());
  EXPECT_EQ(vm->state(), "Stopped");
  EXPECT_EQ(vm->consolePtyPath(), "/dev/pts/3");
  EXPECT_EQ(vm->cmdStatusStr(), "line 1\nline 2");
  EXPECT_THROW(attributeTextIs(*vm, "name", "web2"), rt::AttributeException);
}

TEST(VmStatusTest, AChangeIsToldAndTheSameValueAgainIsNot) {
  const auto vm = rt::make<VmStatus>("web1");
  const auto recorder = rt::make<ChangeRecorder>();
  recorder->watch(vm);
  for (int i = 0; i < 2; ++i) {
    vm->enabledIs(true);
    vm->stateIs("Running");
    vm->consolePtyPathIs("/dev/pts/3");
    vm->cmdStatusStrIs("done");
  }
  EXPECT_THAT(
      recorder->take(),
      ElementsAre("Vm::VmStatus.enabled = true", "Vm::VmStatus.state = Running",
                  "Vm::VmStatus.consolePtyPath = /dev/pts/3", "Vm::VmStatus.cmdStatusStr = done"));
}

TEST(StatusTest, VmsAreKeyedByName) {
  const auto status = rt::make<Status>();
  const auto web1 = status->vmStatusIs("web1");
  EXPECT_EQ(web1->name(), "web1");
  EXPECT_EQ(status->vmStatus("web1"), web1);
  EXPECT_EQ(status->vmStatusIs("web1"), web1);
  EXPECT_EQ(status->vmStatus("web2"), nullptr);
  EXPECT_EQ(status->vmStatuses().size(), 1U);
}

TEST(StatusTest, RemovalReleasesTheVmAndIsToldOnce) {
  const auto status = rt::make<Status>();
  const auto vm = status->vmStatusIs("web1");
  const auto recorder = rt::make<ChangeRecorder>();
  recorder->watch(status);
  EXPECT_EQ(status->vmStatusDel("web1"), vm);
  EXPECT_EQ(status->vmStatusDel("web1"), nullptr);
  EXPECT_EQ(vm->references(), 1U);
  EXPECT_FALSE(status->vmStatusHas("web1"));
  EXPECT_THAT(recorder->take(), ElementsAre("Vm::Status.vmStatus[web1]"));
}

TEST(StatusTest, AMountedVmIsTheOneUnderItsName) {
  const auto status = rt::make<Status>();
  const auto vm = rt::make<VmStatus>("web1");
  status->vmStatusMount(vm);
  EXPECT_EQ(status->vmStatus("web1"), vm);
  EXPECT_THROW(status->vmStatusMount(rt::make<VmStatus>("web1")), rt::ReinstantiationException);
  EXPECT_THROW(status->vmStatusMount(nullptr), rt::NullArgumentException);
}

TEST(StatusTest, VmsAreListedMadeAndRemovedByName) {
  const auto status = rt::make<Status>();
  const rt::AttributeInfo& vms = *status->type().find("vmStatus");
  vms.memberIs(*status, "web1", [](rt::Entity& vm) { attributeTextIs(vm, "state", "Running"); });
  EXPECT_THAT(vms.keys(*status), ElementsAre("web1"));
  EXPECT_EQ(status->vmStatus("web1")->state(), "Running");
  vms.memberDel(*status, "web1");
  EXPECT_THAT(vms.keys(*status), IsEmpty());
}

TEST(StatusTest, AllAreRemoved) {
  const auto status = rt::make<Status>();
  status->vmStatusIs("web1");
  status->vmStatusIs("web2");
  status->vmStatusDelAll();
  EXPECT_TRUE(status->vmStatuses().empty());
}

}  // namespace
}  // namespace Vm
