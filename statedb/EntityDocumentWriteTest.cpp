// What a good document does to an entity, and what is told of it.
#include <gmock/gmock.h>

#include "runtime/entity/TestEntities.h"
#include "runtime/fakes/ChangeRecorder.h"
#include "runtime/records/Bridging.h"
#include "runtime/records/VmConfig.h"
#include "statedb/EntityDocument.h"

namespace statedb {

// A lamp that burns unless told otherwise.
class HallLight final : public rt::EntityOf<HallLight> {
 public:
  uint32_t watts() const { return watts_; }
  void wattsIs(uint32_t watts) { assign<&HallLight::watts>(watts_, watts); }
  static constexpr std::string_view typeName = "Test::HallLight";
  using Attributes =
      rt::AttributeTable<rt::Attribute<"watts", &HallLight::watts, &HallLight::wattsIs>>;

 private:
  uint32_t watts_ = 60;
};

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class EntityDocumentWrite : public testing::Test {
 protected:
  void watch(const rt::Ptr<const rt::Entity>& entity) { recorder_->watch(entity); }
  std::vector<std::string> told() { return recorder_->take(); }
  void fillVm(std::string_view json) {
    const auto problems = fill(*vm_, json, {.switchAttribute = "enabled", .check = {}});
    for (const auto& problem : problems) ADD_FAILURE() << problem.text();
  }

  const Vm::VmConfig::Ptr vm_ = rt::make<Vm::VmConfig>("web1");
  const rt::Ptr<rt::fakes::ChangeRecorder> recorder_ = rt::make<rt::fakes::ChangeRecorder>();
};

TEST_F(EntityDocumentWrite, SetsWhatTheDocumentSays) {
  fillVm(R"( {"memory": 256, "enabled": true, "diskImage": "/a", "vncPort": 5900, "vnicConfig":
           {"nic00": {"macAddr": "52-54-00-12-34-56", "model": "e1000", "intfName": "Vlan1"}}} )");
  EXPECT_EQ(vm_->name(), "web1");
  EXPECT_TRUE(vm_->enabled());
  EXPECT_EQ(vm_->diskImage(), "/a");
  EXPECT_EQ(vm_->memory(), 256U);
  EXPECT_EQ(vm_->vncPort(), 5900U);
  const auto card = vm_->vnicConfig("nic00");
  ASSERT_NE(card, nullptr);
  EXPECT_EQ(card->model(), "e1000");
  EXPECT_EQ(card->macAddr(), rt::EthAddr("52:54:00:12:34:56"));
  EXPECT_EQ(card->intfName(), "Vlan1");
}

TEST_F(EntityDocumentWrite, CopiesARecordToAnotherOfItsTypeTellingWhatDiffers) {
  const auto from = rt::make<Vm::VmConfig>("web2");
  from->memoryIs(256);
  from->enabledIs(true);
  from->vnicConfigIs("nic00")->modelIs("e1000");
  vm_->vncPortIs(5900);
  watch(vm_);
  copy(*from, *vm_, "enabled");
  EXPECT_EQ(documentOf(*vm_), documentOf(*from));
  EXPECT_THAT(told(), ElementsAre("Vm::VmConfig.memory = 256", "Vm::VmConfig.vncPort = 0",
                                  "Vm::VmConfig.vnicConfig[nic00]", "Vm::VmConfig.enabled = true"));
}

TEST_F(EntityDocumentWrite, CopiesNoRecordToOneOfAnotherType) {
  EXPECT_DEATH(copy(*vm_, *rt::make<HallLight>()),
               "assertion failed: a record is copied to one of its type\n");
}

TEST_F(EntityDocumentWrite, GivesFieldsThatAreLeftOutTheDefaultsThatAreAskedFor) {
  FillOptions options;
  options.defaults = [](rt::Entity& fresh) {
    rt::attributeTextIs(fresh, "memory", "256");
    rt::attributeTextIs(fresh, "vncPort", "5900");
  };
  vm_->memoryIs(512);
  EXPECT_THAT(fill(*vm_, R"({"vncPort":0})", options), IsEmpty());
  EXPECT_EQ(vm_->memory(), 256U);
  EXPECT_EQ(vm_->vncPort(), 0U);
}

TEST_F(EntityDocumentWrite, SetsTheSwitchLastWhenItBecomesTrue) {
  watch(vm_);
  fillVm(R"({"enabled":true,"diskImage":"/a","memory":1,"vnicConfig":{"nic00":{}}})");
  EXPECT_THAT(told(), ElementsAre("Vm::VmConfig.diskImage = /a", "Vm::VmConfig.memory = 1",
                                  "Vm::VmConfig.vnicConfig[nic00]", "Vm::VmConfig.enabled = true"));
}

TEST_F(EntityDocumentWrite, SetsTheSwitchFirstWhenItBecomesFalse) {
  fillVm(R"({"enabled":true,"vnicConfig":{"nic00":{}}})");
  watch(vm_);
  fillVm(R"({"vnicConfig":{},"memory":1,"enabled":false})");
  EXPECT_THAT(told(), ElementsAre("Vm::VmConfig.enabled = false", "Vm::VmConfig.memory = 1",
                                  "Vm::VmConfig.vnicConfig[nic00]"));
}

TEST_F(EntityDocumentWrite, SetsTheSwitchFirstWhenItIsMissingForItsDefaultIsFalse) {
  fillVm(R"({"enabled":true})");
  watch(vm_);
  fillVm(R"({"memory":1})");
  EXPECT_THAT(told(), ElementsAre("Vm::VmConfig.enabled = false", "Vm::VmConfig.memory = 1"));
}

TEST_F(EntityDocumentWrite, WithoutASwitchKeepsToTheOrderOfTheAttributes) {
  watch(vm_);
  EXPECT_THAT(fill(*vm_, R"({"memory":1,"enabled":true})"), IsEmpty());
  EXPECT_THAT(told(), ElementsAre("Vm::VmConfig.enabled = true", "Vm::VmConfig.memory = 1"));
}

TEST_F(EntityDocumentWrite, TakesOnlyATruthValueForASwitch) {
  watch(vm_);
  EXPECT_THAT(fill(*vm_, R"({"memory":1,"vncPort":2})", {.switchAttribute = "memory", .check = {}}),
              IsEmpty());
  EXPECT_THAT(told(), ElementsAre("Vm::VmConfig.memory = 1", "Vm::VmConfig.vncPort = 2"));
}

TEST_F(EntityDocumentWrite, KnowsTheSwitchOfMembersToo) {
  const auto house = rt::make<rt::test::House>();
  const auto hall = house->lampIs("hall");
  watch(hall);
  const FillOptions options{.switchAttribute = "lit", .check = {}};
  EXPECT_THAT(fill(*house, R"({"lamp":{"hall":{"lit":true,"watts":60}}})", options), IsEmpty());
  EXPECT_THAT(told(), ElementsAre("Test::Lamp.watts = 60", "Test::Lamp.lit = true"));
}

TEST_F(EntityDocumentWrite, TellsNothingOfWhatStaysEqual) {
  const char* const document =
      R"({"enabled":true,"memory":1,"vnicConfig":{"nic00":{"macAddr":"52:54:00:12:34:56"}}})";
  fillVm(document);
  watch(vm_);
  watch(vm_->vnicConfig("nic00"));
  fillVm(document);
  EXPECT_THAT(told(), IsEmpty());
  fillVm(R"({"enabled":true,"memory":1,"vnicConfig":{"nic00":{"macAddr":"5254.0012.3456"}}})");
  EXPECT_THAT(told(), IsEmpty());
}

TEST_F(EntityDocumentWrite, GivesMissingFieldsTheirDefaults) {
  fillVm(R"({"enabled":true,"diskImage":"/a","memory":1,"vncPort":5900,
             "vnicConfig":{"nic00":{"model":"e1000","intfName":"Vlan1"}}})");
  const auto card = vm_->vnicConfig("nic00");
  fillVm(R"({"vnicConfig":{"nic00":{"model":"e1000"}}})");
  EXPECT_EQ(documentOf(*vm_),
            R"({"enabled":false,"diskImage":"","memory":0,"vncPort":0,"vnicConfig":{"nic00":)"
            R"({"model":"e1000","macAddr":"00:00:00:00:00:00","intfName":""}}})");
  EXPECT_EQ(vm_->vnicConfig("nic00"), card) << "a member that stays is the same entity";
}

TEST_F(EntityDocumentWrite, TakesDefaultsFromTheTypeAndNotFromItsValues) {
  const auto light = rt::make<HallLight>();
  light->wattsIs(5);
  EXPECT_THAT(fill(*light, "{}"), IsEmpty());
  EXPECT_EQ(light->watts(), 60U);
}

TEST_F(EntityDocumentWrite, RemovesMembersThatAreGoneBeforeItAddsOthers) {
  fillVm(R"({"vnicConfig":{"b":{},"c":{},"d":{}}})");
  watch(vm_);
  fillVm(R"({"vnicConfig":{"e":{},"c":{},"a":{}}})");
  EXPECT_THAT(told(), ElementsAre("Vm::VmConfig.vnicConfig[b]", "Vm::VmConfig.vnicConfig[d]",
                                  "Vm::VmConfig.vnicConfig[a]", "Vm::VmConfig.vnicConfig[e]"));
  EXPECT_FALSE(vm_->vnicConfigHas("b"));
  EXPECT_TRUE(vm_->vnicConfigHas("c"));
}

TEST_F(EntityDocumentWrite, MissingCollectionIsAnEmptyOne) {
  fillVm(R"({"vnicConfig":{"a":{}}})");
  fillVm("{}");
  EXPECT_TRUE(vm_->vnicConfigs().empty());
}

TEST_F(EntityDocumentWrite, FillsANewMemberBeforeItTellsOfIt) {
  const auto house = rt::make<rt::test::House>();
  std::vector<uint32_t> watts;
  const auto watcher = rt::make<rt::test::HouseWatcher>(
      house, [&](const rt::String& name) { watts.push_back(house->lamp(name)->watts()); });
  EXPECT_THAT(fill(*house, R"({"lamp":{"hall":{"watts":60},"attic":{"watts":15}}})"), IsEmpty());
  EXPECT_THAT(watts, ElementsAre(15, 60));
}

TEST_F(EntityDocumentWrite, AddsReplacesAndRemovesPlainValues) {
  const auto house = rt::make<rt::test::House>();
  EXPECT_THAT(fill(*house, R"({"reading":{"9":"low","10":"high","11":"x"}})"), IsEmpty());
  watch(house);
  EXPECT_THAT(fill(*house, R"({"reading":{"9":"low","10":"mid","12":""}})"), IsEmpty());
  EXPECT_THAT(told(), ElementsAre("Test::House.reading[11]", "Test::House.reading[10]",
                                  "Test::House.reading[12]"));
  EXPECT_EQ(house->reading(10), "mid");
  EXPECT_EQ(house->readings().size(), 3U);
}

TEST_F(EntityDocumentWrite, LeavesTheKeyAndTheReferencesAlone) {
  const auto house = rt::make<rt::test::House>();
  const auto lamp = house->doorLampIs("porch");
  EXPECT_THAT(fill(*house, "{}"), IsEmpty());
  EXPECT_EQ(house->doorLamp(), lamp);
  fillVm("{}");
  EXPECT_EQ(vm_->name(), "web1");
}

TEST_F(EntityDocumentWrite, HandlersMayTakeTheRecordAwayMeanwhile) {
  const auto config = rt::make<Vm::Config>();
  auto* const vm = config->vmConfigIs("web1").get();
  const auto house = rt::make<rt::test::House>();
  const auto watcher =
      rt::make<rt::test::HouseWatcher>(house, [&](const rt::String&) { config->vmConfigDelAll(); });
  EXPECT_THAT(fill(*vm, R"({"memory":1})",
                   {.switchAttribute = {},
                    .check =
                        [&](const auto&) {
                          house->lampIs("hall");  // the VM's last other reference goes
                          return std::vector<rt::Problem>();
                        }}),
              IsEmpty());
  EXPECT_TRUE(config->vmConfigs().empty());
}

TEST_F(EntityDocumentWrite, LetsAHandlersExceptionThrough) {
  const auto house = rt::make<rt::test::House>();
  const auto watcher = rt::make<rt::test::HouseWatcher>(
      house, [](const rt::String&) { throw rt::InternalException("not today"); });
  EXPECT_THROW(fill(*house, R"({"lamp":{"hall":{}}})"), rt::InternalException);
}

}  // namespace
}  // namespace statedb
