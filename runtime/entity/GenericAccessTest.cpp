// Entities seen by name and as text.
#include <gmock/gmock.h>

#include "runtime/entity/TestEntities.h"
#include "runtime/fakes/ChangeRecorder.h"
#include "runtime/net/EthAddr.h"
#include "runtime/net/IntfId.h"
#include "runtime/net/VlanId.h"

namespace rt::test {

enum class Colour : uint8_t { red, green, blue };
constexpr EnumNames<3> enumNames(Colour) { return {"red", "green", "blue"}; }

// Has an attribute of each kind of value.
class Panel final : public EntityOf<Panel> {
 public:
  const String& label() const { return label_; }
  void labelIs(const String& label) { assign<&Panel::label>(label_, label); }
  bool on() const { return on_; }
  void onIs(bool on) { assign<&Panel::on>(on_, on); }
  uint8_t level() const { return level_; }
  void levelIs(uint8_t level) { assign<&Panel::level>(level_, level); }
  uint32_t count() const { return count_; }
  void countIs(uint32_t count) { assign<&Panel::count>(count_, count); }
  int32_t shift() const { return shift_; }
  void shiftIs(int32_t shift) { assign<&Panel::shift>(shift_, shift); }
  Seconds delay() const { return delay_; }
  void delayIs(Seconds delay) { assign<&Panel::delay>(delay_, delay); }
  Colour colour() const { return colour_; }
  void colourIs(Colour colour) { assign<&Panel::colour>(colour_, colour); }
  const EthAddr& mac() const { return mac_; }
  void macIs(const EthAddr& mac) { assign<&Panel::mac>(mac_, mac); }
  Bridging::VlanId vlan() const { return vlan_; }
  void vlanIs(Bridging::VlanId vlan) { assign<&Panel::vlan>(vlan_, vlan); }
  const IntfId& port() const { return port_; }
  void portIs(const IntfId& port) { assign<&Panel::port>(port_, port); }
  uint32_t serial() const { return 4711; }

  static constexpr std::string_view typeName = "Test::Panel";
  using Attributes = AttributeTable<
      Attribute<"label", &Panel::label, &Panel::labelIs>, Attribute<"on", &Panel::on, &Panel::onIs>,
      Attribute<"level", &Panel::level, &Panel::levelIs>,
      Attribute<"count", &Panel::count, &Panel::countIs>,
      Attribute<"shift", &Panel::shift, &Panel::shiftIs>,
      Attribute<"delay", &Panel::delay, &Panel::delayIs>,
      Attribute<"colour", &Panel::colour, &Panel::colourIs>,
      Attribute<"mac", &Panel::mac, &Panel::macIs>, Attribute<"vlan", &Panel::vlan, &Panel::vlanIs>,
      Attribute<"port", &Panel::port, &Panel::portIs>, Attribute<"serial", &Panel::serial>>;

 private:
  String label_;
  bool on_ = false;
  uint8_t level_ = 0;
  uint32_t count_ = 0;
  int32_t shift_ = 0;
  Seconds delay_;
  Colour colour_ = Colour::red;
  EthAddr mac_;
  Bridging::VlanId vlan_;
  IntfId port_;
};

// Is known by its name alone.
class Slot final : public EntityOf<Slot> {
 public:
  explicit Slot(String name) : name_(std::move(name)) {}
  const String& name() const { return name_; }

  static constexpr std::string_view typeName = "Test::Slot";
  using Attributes = AttributeTable<Attribute<"name", &Slot::name>>;

 private:
  const String name_;
};

// Is known by two names.
class Pair final : public EntityOf<Pair> {
 public:
  Pair(String left, String right) : left_(std::move(left)), right_(std::move(right)) {}
  const String& left() const { return left_; }
  const String& right() const { return right_; }

  static constexpr std::string_view typeName = "Test::Pair";
  using Attributes =
      AttributeTable<Attribute<"left", &Pair::left>, Attribute<"right", &Pair::right>>;

 private:
  const String left_;
  const String right_;
};

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// One attribute of a panel: its type, a text it takes, and texts it refuses.
struct Case {
  std::string attribute;
  std::string type;
  ValueForm form;
  std::string initial;
  std::string good;
  std::vector<std::string> bad;
};

class GenericScalar : public ::testing::TestWithParam<Case> {
 protected:
  const Ptr<Panel> panel_ = make<Panel>();
};

const Case cases[] = {
    {"label", "String", ValueForm::text, "", "a b\n", {}},
    {"on", "bool", ValueForm::boolean, "false", "true", {"", "1", "True", "yes", "true "}},
    {"level", "uint8", ValueForm::number, "0", "255", {"", "256", "-1", "1.5", " 1", "0x1", "one"}},
    {"count", "uint32", ValueForm::number, "0", "4294967295", {"4294967296", "-1", "+1", "1 "}},
    {"shift", "int32", ValueForm::number, "0", "-2147483648", {"-2147483649", "2147483648", "-"}},
    {"delay", "Seconds", ValueForm::number, "0", "0.25", {"", "inf", "nan", "1s", "1e999"}},
    {"colour", "enumeration", ValueForm::text, "red", "blue", {"", "Blue", "2", "mauve", "blue "}},
    {"mac",
     "EthAddr",
     ValueForm::text,
     "00:00:00:00:00:00",
     "02:00:00:00:00:fe",
     {"", "02:00:00:00:00", "02:00:00:00:00:0g", "hello"}},
    {"vlan", "Bridging::VlanId", ValueForm::text, "1", "4094", {"0", "4095", "65537", "", "ten"}},
    {"port", "IntfId", ValueForm::text, "", "Vlan100", {}},
};
INSTANTIATE_TEST_SUITE_P(Of, GenericScalar, ::testing::ValuesIn(cases),
                         [](const auto& each) { return each.param.attribute; });

TEST(AttributeKindTest, IsTextAsItIsNamed) {
  EXPECT_EQ(toText(AttributeKind::scalar), "scalar");
  EXPECT_EQ(toText(AttributeKind::entity), "entity");
  EXPECT_EQ(toText(AttributeKind::entities), "entities");
  EXPECT_EQ(toText(AttributeKind::values), "values");
}

TEST_P(GenericScalar, IsListedWithItsType) {
  const AttributeInfo* const info = panel_->type().find(GetParam().attribute);
  ASSERT_NE(info, nullptr);
  EXPECT_EQ(info->kind, AttributeKind::scalar);
  EXPECT_EQ(info->valueType, GetParam().type);
  EXPECT_EQ(info->form, GetParam().form);
  EXPECT_EQ(info->keys, nullptr);
}

TEST_P(GenericScalar, IsReadAsText) {
  EXPECT_EQ(attributeText(*panel_, GetParam().attribute), GetParam().initial);
}

TEST_P(GenericScalar, IsWrittenFromTextThroughItsMutator) {
  const auto recorder = make<fakes::ChangeRecorder>();
  recorder->watch(panel_);
  attributeTextIs(*panel_, GetParam().attribute, GetParam().good);
  EXPECT_EQ(attributeText(*panel_, GetParam().attribute), GetParam().good);
  EXPECT_THAT(recorder->take(),
              ElementsAre("Test::Panel." + GetParam().attribute + " = " + GetParam().good));
}

TEST_P(GenericScalar, RefusesTextThatIsNoValueAndKeepsTheOldOne) {
  attributeTextIs(*panel_, GetParam().attribute, GetParam().good);
  const auto recorder = make<fakes::ChangeRecorder>();
  recorder->watch(panel_);
  for (const std::string& bad : GetParam().bad)
    EXPECT_EQ(
        thrownBy<AttributeException>([&] { attributeTextIs(*panel_, GetParam().attribute, bad); }),
        "Test::Panel." + GetParam().attribute + ": '" + bad + "' is no value of type " +
            GetParam().type);
  EXPECT_EQ(attributeText(*panel_, GetParam().attribute), GetParam().good);
  EXPECT_THAT(recorder->take(), IsEmpty());
}

TEST(GenericAccess, ListsAllAttributesInTheirOrder) {
  std::vector<std::string_view> names;
  for (const auto& attribute : make<Panel>()->type().attributes) names.push_back(attribute.name);
  EXPECT_THAT(names, ElementsAre("label", "on", "level", "count", "shift", "delay", "colour", "mac",
                                 "vlan", "port", "serial"));
}

TEST(GenericAccess, UnknownNameThrowsAndSaysWhichThereAre) {
  const auto lamp = make<Lamp>();
  const std::string text = "Test::Lamp has no attribute 'dim'; it has name, lit, watts";
  EXPECT_EQ(thrownBy<AttributeException>([&] { attributeText(*lamp, "dim"); }), text);
  EXPECT_EQ(thrownBy<AttributeException>([&] { attributeTextIs(*lamp, "dim", "1"); }), text);
}

TEST(GenericAccess, AttributeWithoutAMutatorIsReadOnly) {
  const auto panel = make<Panel>();
  EXPECT_EQ(attributeText(*panel, "serial"), "4711");
  EXPECT_EQ(thrownBy<AttributeException>([&] { attributeTextIs(*panel, "serial", "1"); }),
            "Test::Panel.serial is read-only");
  EXPECT_EQ(panel->type().find("serial")->textIs, nullptr);
}

TEST(GenericAccess, CollectionIsReadAsNoScalar) {
  const auto house = make<House>();
  EXPECT_EQ(thrownBy<AttributeException>([&] { attributeText(*house, "lamp"); }),
            "Test::House.lamp is no scalar: it is of kind entities");
  EXPECT_EQ(thrownBy<AttributeException>([&] { attributeTextIs(*house, "reading", "x"); }),
            "Test::House.reading is no scalar: it is of kind values");
  EXPECT_EQ(thrownBy<AttributeException>([&] { attributeText(*house, "doorLamp"); }),
            "Test::House.doorLamp is no scalar: it is of kind entity");
}

TEST(GenericAccess, WritingAnEqualValueTellsNothing) {
  const auto lamp = make<Lamp>();
  attributeTextIs(*lamp, "watts", "60");
  const auto recorder = make<fakes::ChangeRecorder>();
  recorder->watch(lamp);
  attributeTextIs(*lamp, "watts", "60");
  attributeTextIs(*lamp, "watts", "060");
  EXPECT_THAT(recorder->take(), IsEmpty());
}

TEST(GenericAccess, NumberOfNoEnumerationValueIsReadAsItsNumber) {
  const auto panel = make<Panel>();
  panel->colourIs(static_cast<Colour>(200));
  EXPECT_EQ(attributeText(*panel, "colour"), "200");
}

TEST(GenericAccess, FollowsAReferenceToAnEntity) {
  const auto house = make<House>();
  const AttributeInfo* const info = house->type().find("doorLamp");
  ASSERT_NE(info, nullptr);
  EXPECT_EQ(info->kind, AttributeKind::entity);
  EXPECT_EQ(info->valueType, "Test::Lamp");
  EXPECT_EQ(info->entity(*house), nullptr);
  const auto lamp = house->doorLampIs("porch");
  EXPECT_EQ(info->entity(*house), lamp);
}

TEST(GenericAccess, MakesAFreshRecordWithTheKeyOfAnotherAndAllDefaults) {
  const auto hall = make<Lamp>("hall");
  hall->wattsIs(60);
  const auto fresh = ptrCast<Lamp>(hall->type().fresh(*hall));
  ASSERT_NE(fresh, nullptr);
  EXPECT_NE(fresh, hall);
  EXPECT_EQ(fresh->name(), "lamp") << "a record that needs no key gets none";
  EXPECT_EQ(fresh->watts(), 0U);

  const auto slot = make<Slot>("left");
  EXPECT_EQ(attributeText(*slot->type().fresh(*slot), "name"), "left");
  EXPECT_NE(make<House>()->type().fresh, nullptr);
}

TEST(GenericAccess, MakesNoFreshOneOfATypeThatNeedsMoreThanAKey) {
  EXPECT_EQ(typeInfo<HouseWatcher>.fresh, nullptr);
  EXPECT_EQ(typeInfo<Pair>.fresh, nullptr);
}

// A house and what generic code knows of its collections.
class GenericCollection : public ::testing::Test {
 protected:
  GenericCollection() { recorder_->watch(house_); }

  const House::Ptr house_ = make<House>();
  const Ptr<fakes::ChangeRecorder> recorder_ = make<fakes::ChangeRecorder>();
  const AttributeInfo& lamp_ = *house_->type().find("lamp");
  const AttributeInfo& reading_ = *house_->type().find("reading");
};

TEST_F(GenericCollection, IsListedWithItsTypes) {
  EXPECT_EQ(lamp_.kind, AttributeKind::entities);
  EXPECT_EQ(lamp_.keyType, "String");
  EXPECT_EQ(lamp_.valueType, "Test::Lamp");
  EXPECT_EQ(reading_.kind, AttributeKind::values);
  EXPECT_EQ(reading_.keyType, "uint32");
  EXPECT_EQ(reading_.valueType, "String");
}

TEST_F(GenericCollection, OffersNothingThatDoesNotApplyToIt) {
  EXPECT_EQ(lamp_.text, nullptr);
  EXPECT_EQ(lamp_.memberText, nullptr);
  EXPECT_EQ(reading_.member, nullptr);
  EXPECT_EQ(reading_.memberIs, nullptr);
}

TEST_F(GenericCollection, ListsItsKeysInOrder) {
  for (const char* name : {"hall", "attic"}) house_->lampIs(name);
  for (const uint32_t number : {10U, 9U}) house_->readingIs(number, "x");
  EXPECT_THAT(lamp_.keys(*house_), ElementsAre("attic", "hall"));
  EXPECT_THAT(reading_.keys(*house_), ElementsAre("9", "10"));
}

TEST_F(GenericCollection, GivesItsMembersByKey) {
  const auto hall = house_->lampIs("hall");
  house_->readingIs(7, "low");
  EXPECT_EQ(lamp_.member(*house_, "hall"), hall);
  EXPECT_EQ(lamp_.member(*house_, "attic"), nullptr);
  EXPECT_EQ(reading_.memberText(*house_, "7"), "low");
  EXPECT_EQ(reading_.memberText(*house_, "8"), "");
}

TEST_F(GenericCollection, FillsANewMemberBeforeItTellsOfIt) {
  Log log;
  const auto watcher = make<HouseWatcher>(house_, [&](const String& name) {
    log.push_back("told " + toText(house_->lamp(name)->watts()).str());
  });
  const auto made = lamp_.memberIs(*house_, "hall", [&](Entity& lamp) {
    attributeTextIs(lamp, "watts", "60");
    log.push_back(house_->lamps().has("hall") ? "there" : "not there yet");
  });
  EXPECT_THAT(log, ElementsAre("not there yet", "told 60"));
  EXPECT_EQ(made, house_->lamp("hall"));
  EXPECT_EQ(attributeText(*made, "name"), "hall");
}

TEST_F(GenericCollection, FillsAMemberThatIsThereAndTellsNothingNew) {
  const auto hall = house_->lampIs("hall");
  recorder_->take();
  const auto same =
      lamp_.memberIs(*house_, "hall", [](Entity& lamp) { attributeTextIs(lamp, "watts", "60"); });
  EXPECT_EQ(same, hall);
  EXPECT_EQ(hall->watts(), 60U);
  EXPECT_THAT(recorder_->take(), IsEmpty());
}

TEST_F(GenericCollection, MakesNoMemberWhenItsFillingThrows) {
  const auto fill = [](Entity& lamp) { attributeTextIs(lamp, "watts", "many"); };
  EXPECT_THROW(lamp_.memberIs(*house_, "hall", fill), AttributeException);
  EXPECT_TRUE(house_->lamps().empty());
  EXPECT_THAT(recorder_->take(), IsEmpty());
}

TEST_F(GenericCollection, RemovesAMemberByKey) {
  house_->lampIs("hall");
  house_->readingIs(7, "low");
  recorder_->take();
  lamp_.memberDel(*house_, "hall");
  reading_.memberDel(*house_, "7");
  EXPECT_THAT(recorder_->take(), ElementsAre("Test::House.lamp[hall]", "Test::House.reading[7]"));
}

TEST_F(GenericCollection, AddsAndReplacesPlainValues) {
  reading_.memberTextIs(*house_, "7", "low");
  reading_.memberTextIs(*house_, "7", "high");
  EXPECT_EQ(house_->reading(7), "high");
  EXPECT_THAT(recorder_->take(), ElementsAre("Test::House.reading[7]", "Test::House.reading[7]"));
  EXPECT_EQ(thrownBy<AttributeException>([&] { reading_.memberTextIs(*house_, "x", "low"); }),
            "Test::House.reading: 'x' is no value of type uint32");
  EXPECT_EQ(lamp_.memberTextIs, nullptr);
}

TEST_F(GenericCollection, RefusesTextThatIsNoKeyAndChangesNothing) {
  house_->readingIs(7, "low");
  recorder_->take();
  EXPECT_EQ(thrownBy<AttributeException>([&] { reading_.memberDel(*house_, "seven"); }),
            "Test::House.reading: 'seven' is no value of type uint32");
  EXPECT_THROW(reading_.memberText(*house_, "-7"), AttributeException);
  EXPECT_THAT(reading_.keys(*house_), ElementsAre("7"));
  EXPECT_THAT(recorder_->take(), IsEmpty());
}

TEST_F(GenericCollection, GivesTheKeyOfAChangeAsText) {
  const String name = "hall";
  const uint32_t number = 4'000'000'000;
  EXPECT_EQ(lamp_.keyText(&name), "hall");
  EXPECT_EQ(reading_.keyText(&number), "4000000000");
}

}  // namespace
}  // namespace rt::test
