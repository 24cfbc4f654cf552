#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runtime/entity/Reactor.h"
#include "runtime/fakes/ChangeRecorder.h"
#include "runtime/records/VmConfig.h"

namespace Vm {
namespace {

using rt::attributeText;
using rt::attributeTextIs;
using rt::fakes::ChangeRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

const rt::EthAddr mac("52:54:00:12:34:56");

TEST(VmConfigTest, ANewOneHasItsNameAndElseNothing) {
  const auto vm = rt::make<VmConfig>("web1");
  EXPECT_EQ(vm->name(), "web1");
  EXPECT_FALSE(vm->enabled());
  EXPECT_EQ(vm->diskImage(), "");
  EXPECT_EQ(vm->memory(), 0U);
  EXPECT_EQ(vm->vncPort(), 0U);
  EXPECT_TRUE(vm->vnicConfigs().empty());
}

TEST(VmConfigTest, EachAttributeIsReadByName) {
  const auto vm = rt::make<VmConfig>("web1");
  vm->enabledIs(true);
  vm->diskImageIs("/images/web.iso");
  vm->memoryIs(4294967295);
  vm->vncPortIs(5900);
  EXPECT_EQ(attributeText(*vm, "name"), "web1");
  EXPECT_EQ(attributeText(*vm, "enabled"), "true");
  EXPECT_EQ(attributeText(*vm, "diskImage"), "/images/web.iso");
  EXPECT_EQ(attributeText(*vm, "memory"), "4294967295");
  EXPECT_EQ(attributeText(*vm, "vncPort"), "5900");
}

TEST(VmConfigTest, EachAttributeButTheNameIsWrittenByName) {
  const auto vm = rt::make<VmConfig>("web1");
  attributeTextIs(*vm, "enabled", "true");
  attributeTextIs(*vm, "diskImage", "/images/web.iso");
  attributeTextIs(*vm, "memory", "256");
  attributeTextIs(*vm, "vncPort", "5910");
  EXPECT_TRUE(vm->enabled());
  EXPECT_EQ(vm->diskImage(), "/images/web.iso");
  EXPECT_EQ(vm->memory(), 256U);
  EXPECT_EQ(vm->vncPort(), 5910U);
  EXPECT_THROW(attributeTextIs(*vm, "name", "web2"), rt::AttributeException);
}

TEST(VmConfigTest, TextThatIsNoValueIsRefusedAndChangesNothing) {
  const auto vm = rt::make<VmConfig>("web1");
  vm->memoryIs(256);
  for (const char* text : {"", "-1", "+1", " 1", "1 ", "1.5", "0x10", "4294967296", "many"}) {
    EXPECT_THROW(attributeTextIs(*vm, "memory", text), rt::AttributeException) << text;
  }
  for (const char* text : {"", "1", "yes", "True", "true "}) {
    EXPECT_THROW(attributeTextIs(*vm, "enabled", text), rt::AttributeException) << text;
  }
  EXPECT_EQ(vm->memory(), 256U);
  EXPECT_FALSE(vm->enabled());
}

TEST(VmConfigTest, AChangeIsToldAndTheSameValueAgainIsNot) {
  const auto vm = rt::make<VmConfig>("web1");
  const auto recorder = rt::make<ChangeRecorder>();
  recorder->watch(vm);
  vm->enabledIs(true);
  vm->diskImageIs("/images/web.iso");
  vm->memoryIs(256);
  vm->vncPortIs(5900);
  EXPECT_THAT(recorder->take(),
              ElementsAre("Vm::VmConfig.enabled = true", "Vm::VmConfig.diskImage = /images/web.iso",
                          "Vm::VmConfig.memory = 256", "Vm::VmConfig.vncPort = 5900"));
  vm->enabledIs(true);
  vm->diskImageIs("/images/web.iso");
  vm->memoryIs(256);
  vm->vncPortIs(5900);
  EXPECT_THAT(recorder->take(), IsEmpty());
}

// Cards.

TEST(VnicConfigTest, ANewOneHasItsKeyAndElseNothing) {
  const auto card = rt::make<VnicConfig>("nic00");
  EXPECT_EQ(card->key(), "nic00");
  EXPECT_EQ(card->model(), "");
  EXPECT_EQ(card->macAddr(), rt::EthAddr());
  EXPECT_EQ(card->intfName(), "");
}

TEST(VnicConfigTest, EachAttributeIsReadAndWrittenByName) {
  const auto card = rt::make<VnicConfig>("nic00");
  attributeTextIs(*card, "model", "virtio-net-pci");
  attributeTextIs(*card, "macAddr", "52-54-00-12-34-56");
  attributeTextIs(*card, "intfName", "Vlan100");
  EXPECT_EQ(card->model(), "virtio-net-pci");
  EXPECT_EQ(card->macAddr(), mac);
  EXPECT_EQ(card->intfName(), "Vlan100");
  EXPECT_EQ(attributeText(*card, "key"), "nic00");
  EXPECT_EQ(attributeText(*card, "model"), "virtio-net-pci");
  EXPECT_EQ(attributeText(*card, "macAddr"), "52:54:00:12:34:56");
  EXPECT_EQ(attributeText(*card, "intfName"), "Vlan100");
}

TEST(VnicConfigTest, ItsKeyIsReadOnlyAndAMalformedAddressIsRefused) {
  const auto card = rt::make<VnicConfig>("nic00");
  EXPECT_THROW(attributeTextIs(*card, "key", "nic01"), rt::AttributeException);
  EXPECT_THROW(attributeTextIs(*card, "macAddr", "52:54:00:12:34"), rt::AttributeException);
  EXPECT_EQ(card->macAddr(), rt::EthAddr());
}

TEST(VnicConfigTest, CardsAreKeptInKeyOrder) {
  const auto vm = rt::make<VmConfig>("web1");
  vm->vnicConfigIs("nic01");
  vm->vnicConfigIs("nic00");
  std::vector<rt::String> keys;
  for (const auto& [key, card] : vm->vnicConfigs()) keys.push_back(key);
  EXPECT_THAT(keys, ElementsAre("nic00", "nic01"));
}

TEST(VnicConfigTest, ACardIsFoundUnderItsKeyAndReleasedByRemoval) {
  const auto vm = rt::make<VmConfig>("web1");
  const auto card = vm->vnicConfigIs("nic00");
  EXPECT_EQ(vm->vnicConfig("nic00"), card);
  EXPECT_EQ(vm->vnicConfigIs("nic00"), card);
  EXPECT_TRUE(vm->vnicConfigHas("nic00"));
  EXPECT_EQ(vm->vnicConfigDel("nic00"), card);
  EXPECT_FALSE(vm->vnicConfigHas("nic00"));
  EXPECT_EQ(vm->vnicConfig("nic00"), nullptr);
  EXPECT_EQ(vm->vnicConfigDel("nic00"), nullptr);
  EXPECT_EQ(card->references(), 1U);
}

TEST(VnicConfigTest, ACardIsFilledBeforeItsMountIsTold) {
  const auto vm = rt::make<VmConfig>("web1");
  const auto recorder = rt::make<ChangeRecorder>();
  recorder->watch(vm);
  const auto card = rt::make<VnicConfig>("nic00");
  card->modelIs("e1000");
  EXPECT_THAT(recorder->take(), IsEmpty());
  vm->vnicConfigMount(card);
  EXPECT_THAT(recorder->take(), ElementsAre("Vm::VmConfig.vnicConfig[nic00]"));
  EXPECT_EQ(vm->vnicConfig("nic00")->model(), "e1000");
  vm->vnicConfigDelAll();
  EXPECT_THAT(recorder->take(), ElementsAre("Vm::VmConfig.vnicConfig[nic00]"));
  EXPECT_TRUE(vm->vnicConfigs().empty());
}

}  // namespace

// The root. This machine notes what a VM's record says at the time it is told of.

class VmMemoryNote final : public rt::StateMachineOf<VmMemoryNote> {
 public:
  explicit VmMemoryNote(Config::PtrConst config) : config_(*this, std::move(config)) {}

  const std::vector<std::string>& notes() const { return notes_; }

  static constexpr std::string_view typeName = "VmMemoryNote";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &VmMemoryNote::initialized>>;

 private:
  void handleVmConfig(const rt::String& name) {
    const auto vm = config_->vmConfig(name);
    notes_.push_back(name.str() + ": " + (vm ? std::to_string(vm->memory()) : "gone"));
  }

  std::vector<std::string> notes_;
  rt::Reactor<VmMemoryNote, const Config, rt::On<&Config::vmConfig, &VmMemoryNote::handleVmConfig>>
      config_;
};

namespace {

TEST(ConfigTest, AMountedVmIsFilledBeforeItIsTold) {
  const auto config = rt::make<Config>();
  const auto note = rt::make<VmMemoryNote>(config);
  const auto vm = rt::make<VmConfig>("web1");
  vm->memoryIs(256);
  config->vmConfigMount(vm);
  config->vmConfigDel("web1");
  EXPECT_THAT(note->notes(), ElementsAre("web1: 256", "web1: gone"));
}

TEST(ConfigTest, AVmMadeByNameIsFilledBeforeItIsTold) {
  const auto config = rt::make<Config>();
  const auto note = rt::make<VmMemoryNote>(config);
  const rt::AttributeInfo& vms = *config->type().find("vmConfig");
  vms.memberIs(*config, "web1", [](rt::Entity& vm) { attributeTextIs(vm, "memory", "512"); });
  EXPECT_THAT(note->notes(), ElementsAre("web1: 512"));
  EXPECT_THAT(vms.keys(*config), ElementsAre("web1"));
  EXPECT_EQ(vms.member(*config, "web1"), config->vmConfig("web1"));
  vms.memberDel(*config, "web1");
  EXPECT_THAT(note->notes(), ElementsAre("web1: 512", "web1: gone"));
}

TEST(ConfigTest, VmsAreKeyedByName) {
  const auto config = rt::make<Config>();
  const auto web2 = config->vmConfigIs("web2");
  const auto web1 = config->vmConfigIs("web1");
  EXPECT_EQ(web1->name(), "web1");
  EXPECT_EQ(config->vmConfig("web1"), web1);
  EXPECT_EQ(config->vmConfig("web2"), web2);
  EXPECT_EQ(config->vmConfig("web3"), nullptr);
  EXPECT_EQ(config->vmConfigIs("web1"), web1);
  EXPECT_EQ(config->vmConfigs().size(), 2U);
}

TEST(ConfigTest, RemovalReleasesTheVm) {
  const auto config = rt::make<Config>();
  const auto vm = config->vmConfigIs("web1");
  EXPECT_EQ(vm->references(), 2U);
  EXPECT_EQ(config->vmConfigDel("web1"), vm);
  EXPECT_EQ(vm->references(), 1U);
  EXPECT_FALSE(config->vmConfigHas("web1"));
}

TEST(ConfigTest, AllAreRemovedOneByOne) {
  const auto config = rt::make<Config>();
  config->vmConfigIs("web1");
  config->vmConfigIs("web2");
  const auto recorder = rt::make<ChangeRecorder>();
  recorder->watch(config);
  config->vmConfigDelAll();
  EXPECT_THAT(recorder->take(),
              ElementsAre("Vm::Config.vmConfig[web1]", "Vm::Config.vmConfig[web2]"));
  EXPECT_TRUE(config->vmConfigs().empty());
}

TEST(ConfigTest, AnotherVmUnderANameThatIsTakenIsRefused) {
  const auto config = rt::make<Config>();
  const auto vm = config->vmConfigIs("web1");
  EXPECT_THROW(config->vmConfigMount(rt::make<VmConfig>("web1")), rt::ReinstantiationException);
  EXPECT_THROW(config->vmConfigMount(nullptr), rt::NullArgumentException);
  EXPECT_EQ(config->vmConfig("web1"), vm);
}

}  // namespace
}  // namespace Vm
