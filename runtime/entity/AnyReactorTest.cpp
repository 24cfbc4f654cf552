// Reactors that hear more than one type: of any entity, or of a class that others extend.
#include <gmock/gmock.h>

#include "runtime/entity/TestEntities.h"
#include "runtime/fakes/ChangeRecorder.h"
#include "runtime/records/Interface.h"

namespace rt::test {

// A house that has a gate as well.
class Manor final : public EntityOf<Manor, House> {
 public:
  bool gateOpen() const { return gateOpen_; }
  void gateOpenIs(bool open) { assign<&Manor::gateOpen>(gateOpen_, open); }

  static constexpr std::string_view typeName = "Test::Manor";
  using Attributes = AttributeTable<
      CollectionAttribute<"lamp", &House::lamp, &House::lamps, &House::lampMount, &House::lampDel>,
      CollectionAttribute<"reading", &House::reading, &House::readings, nullptr,
                          &House::readingDel>,
      Attribute<"doorLamp", &House::doorLamp>,
      Attribute<"gateOpen", &Manor::gateOpen, &Manor::gateOpenIs>>;

 private:
  bool gateOpen_ = false;
};

// Counts the changes of interfaces, by a reactor on the base class of directories.
class Counter final : public StateMachineOf<Counter> {
 public:
  explicit Counter(const rt::Ptr<Interface::IntfStatusPtrDir>& dir) : dir_(*this, dir) {}
  const Log& log() const { return log_; }

  static constexpr std::string_view typeName = "Test::Counter";
  using Attributes = AttributeTable<Attribute<"initialized", &Counter::initialized>>;

 private:
  void handleIntfStatus(const IntfId& id) { log_.push_back(id.name().str()); }

  Log log_;
  Reactor<Counter, Interface::IntfStatusPtrDir,
          On<&Interface::IntfStatusPtrDir::intfStatus, &Counter::handleIntfStatus>>
      dir_;
};

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(AnyReactor, HearsOfEveryAttributeOfEveryEntity) {
  const auto lamp = make<Lamp>();
  const auto house = make<House>();
  const auto recorder = make<fakes::ChangeRecorder>();
  recorder->watch(lamp);
  recorder->watch(house);
  lamp->litIs(true);
  lamp->wattsIs(60);
  house->lampIs("hall");
  house->readingIs(7, "low");
  house->doorLampIs("porch");
  EXPECT_THAT(recorder->take(), ElementsAre("Test::Lamp.lit = true", "Test::Lamp.watts = 60",
                                            "Test::House.lamp[hall]", "Test::House.reading[7]",
                                            "Test::House.doorLamp"));
}

TEST(AnyReactor, HearsInTheOrderOfItsRegistrationAmongOthers) {
  const auto lamp = make<Lamp>();
  Log log;
  const auto before = make<Watcher>(lamp, says(log, "before"));
  const auto recorder = make<fakes::ChangeRecorder>();
  recorder->watch(lamp);
  Log seenByLast;
  const auto last = make<Watcher>(lamp, [&] { seenByLast = recorder->take(); });
  lamp->litIs(true);
  EXPECT_THAT(log, ElementsAre("before"));
  EXPECT_THAT(seenByLast, ElementsAre("Test::Lamp.lit = true"));
}

TEST(AnyReactor, HearsNothingWhileItsMachineIsOff) {
  const auto lamp = make<Lamp>();
  const auto recorder = make<fakes::ChangeRecorder>();
  recorder->watch(lamp);
  recorder->hasNotificationActiveIs(false);
  lamp->litIs(true);
  recorder->hasNotificationActiveIs(true);
  EXPECT_THAT(recorder->take(), IsEmpty());
}

TEST(AnyReactor, LeavesItsEntityWhenItsMachineEnds) {
  const auto lamp = make<Lamp>();
  auto recorder = make<fakes::ChangeRecorder>();
  recorder->watch(lamp);
  recorder = nullptr;
  EXPECT_FALSE(lamp->hasReactors());
  EXPECT_EQ(lamp->references(), 1U);
}

TEST(AnyReactor, MayHaveItsMachineDroppedByAnEarlierHandler) {
  const auto lamp = make<Lamp>();
  Ptr<fakes::ChangeRecorder> recorder;
  const auto first = make<Watcher>(lamp, [&] { recorder = nullptr; });
  recorder = make<fakes::ChangeRecorder>();
  recorder->watch(lamp);
  lamp->litIs(true);
  EXPECT_EQ(recorder, nullptr);
}

TEST(DerivedEntity, IsHeardByAReactorOnItsBaseClass) {
  const auto manor = make<Manor>();
  Log log;
  const auto watcher =
      make<HouseWatcher>(manor, [&](const String& name) { log.push_back(name.str()); });
  manor->lampIs("hall");
  EXPECT_THAT(log, ElementsAre("hall"));
}

TEST(DerivedEntity, TellsAReactorOnItsBaseClassNothingOfItsOwnAttributes) {
  const auto manor = make<Manor>();
  Log log;
  const auto watcher = make<HouseWatcher>(
      manor, [&](const String& name) { log.push_back(name.str()); },
      [&](uint32_t number) { log.push_back(std::to_string(number)); }, says(log, "door"));
  manor->gateOpenIs(true);
  EXPECT_TRUE(manor->gateOpen());
  EXPECT_THAT(log, IsEmpty());
}

TEST(DerivedEntity, NamesItselfAndListsTheAttributesOfItsBaseClassFirst) {
  const auto manor = make<Manor>();
  const Entity& entity = *manor;
  std::vector<std::string_view> names;
  for (const auto& attribute : entity.type().attributes) names.push_back(attribute.name);
  EXPECT_EQ(entity.type().name, "Test::Manor");
  EXPECT_THAT(names, ElementsAre("lamp", "reading", "doorLamp", "gateOpen"));
}

TEST(DerivedEntity, DirectoryOfAllInterfacesIsHeardAsADirectory) {
  const auto all = make<Interface::AllIntfStatusDir>();
  const auto counter = make<Counter>(all);
  all->intfStatusIs(IntfId("Vlan100"));
  all->intfStatusDel(IntfId("Vlan100"));
  EXPECT_THAT(counter->log(), ElementsAre("Vlan100", "Vlan100"));
}

}  // namespace
}  // namespace rt::test
