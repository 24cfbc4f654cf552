// The worked example of docs/runtime.md: lamps that follow their switches and glow on for a while.
#include <gtest/gtest.h>

#include "runtime/entity/Reactor.h"
#include "runtime/entity/TypeRegistry.h"
#include "runtime/fakes/ManualClock.h"
#include "runtime/fakes/TraceRecorder.h"
#include "runtime/loop/ActivityManager.h"

namespace House {

// What is asked for in one room. Written by whoever is in it.
class LampSwitch final : public rt::EntityOf<LampSwitch> {
 public:
  explicit LampSwitch(rt::String room) : room_(std::move(room)) {}

  const rt::String& room() const { return room_; }

  bool on() const { return on_; }
  void onIs(bool on) { assign<&LampSwitch::on>(on_, on); }

  static constexpr std::string_view typeName = "House::LampSwitch";
  using Attributes = rt::AttributeTable<rt::Attribute<"room", &LampSwitch::room>,
                                        rt::Attribute<"on", &LampSwitch::on, &LampSwitch::onIs>>;

 private:
  const rt::String room_;
  bool on_ = false;
};

// What is so of one room's lamp. Written by its LampSm.
class Lamp final : public rt::EntityOf<Lamp> {
 public:
  bool lit() const { return lit_; }
  void litIs(bool lit) { assign<&Lamp::lit>(lit_, lit); }

  static constexpr std::string_view typeName = "House::Lamp";
  using Attributes = rt::AttributeTable<rt::Attribute<"lit", &Lamp::lit, &Lamp::litIs>>;

 private:
  bool lit_ = false;
};

// All switches, by room.
class Panel final : public rt::EntityOf<Panel> {
 public:
  using LampSwitches = rt::Collection<rt::String, LampSwitch::Ptr>;

  const LampSwitches& lampSwitches() const { return lampSwitch_; }
  LampSwitch::Ptr lampSwitch(const rt::String& room) const { return lampSwitch_.get(room); }
  LampSwitch::Ptr lampSwitchIs(const rt::String& room) {
    return instantiate<&Panel::lampSwitch>(lampSwitch_, room, room);
  }
  void lampSwitchMount(const LampSwitch::Ptr& filled) {
    mount<&Panel::lampSwitch, &LampSwitch::room>(lampSwitch_, filled);
  }
  LampSwitch::Ptr lampSwitchDel(const rt::String& room) {
    return remove<&Panel::lampSwitch>(lampSwitch_, room);
  }

  static constexpr std::string_view typeName = "House::Panel";
  using Attributes = rt::AttributeTable<
      rt::CollectionAttribute<"lampSwitch", &Panel::lampSwitch, &Panel::lampSwitches,
                              &Panel::lampSwitchMount, &Panel::lampSwitchDel>>;

 private:
  LampSwitches lampSwitch_;
};

constexpr rt::Seconds afterglow{5};

// Lights one lamp.
//
//   switch | afterglow | it does
//   on     | any       | lights the lamp
//   off    | begins    | sets the clock
//   off    | over      | puts the lamp out
class LampSm final : public rt::StateMachineOf<LampSm> {
 public:
  LampSm(LampSwitch::PtrConst lampSwitch, rt::Ptr<rt::Clock> clock)
      : lampSwitch_(*this, std::move(lampSwitch)), goOut_(*this, std::move(clock)) {
    handleInitialized();
  }

  const Lamp::Ptr& lamp() const { return lamp_; }

  static constexpr std::string_view typeName = "House::LampSm";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &LampSm::initialized>,
                                        rt::Attribute<"lamp", &LampSm::lamp>>;

 private:
  void handleInitialized() {
    if (initialized()) return;
    initializedIs(true);
    handleOn();
  }
  void handleOn() {
    if (lampSwitch_->on())
      lamp_->litIs(true);
    else
      goOut_.timeMinIs(rt::currentTime() + afterglow);
  }
  void handleGoOut() {
    if (lampSwitch_->on()) return;
    VM_TRACE(7) << "handleGoOut " << lampSwitch_->room();
    lamp_->litIs(false);
  }

  const Lamp::Ptr lamp_ = rt::make<Lamp>();
  rt::Reactor<LampSm, const LampSwitch, rt::On<&LampSwitch::on, &LampSm::handleOn>> lampSwitch_;
  rt::ClockReactor<LampSm, &LampSm::handleGoOut> goOut_;
};

// Keeps a LampSm for each switch.
class HouseSm final : public rt::StateMachineOf<HouseSm> {
 public:
  using LampSms = rt::Collection<rt::String, LampSm::Ptr>;

  HouseSm(Panel::PtrConst panel, rt::Ptr<rt::Clock> clock)
      : clock_(std::move(clock)), panel_(*this, std::move(panel)) {
    handleInitialized();
  }

  const LampSms& lampSms() const { return lampSm_; }
  LampSm::Ptr lampSm(const rt::String& room) const { return lampSm_.get(room); }

  static constexpr std::string_view typeName = "House::HouseSm";
  using Attributes =
      rt::AttributeTable<rt::Attribute<"initialized", &HouseSm::initialized>,
                         rt::CollectionAttribute<"lampSm", &HouseSm::lampSm, &HouseSm::lampSms>>;

 private:
  void handleInitialized() {
    if (initialized()) return;
    initializedIs(true);
    for (const auto& [room, lampSwitch] : panel_->lampSwitches()) handleLampSwitch(room);
  }
  void handleLampSwitch(const rt::String& room) {
    if (const auto lampSwitch = panel_->lampSwitch(room))
      instantiate<&HouseSm::lampSm>(lampSm_, room, lampSwitch, clock_);
    else
      remove<&HouseSm::lampSm>(lampSm_, room);
  }

  const rt::Ptr<rt::Clock> clock_;
  LampSms lampSm_;
  rt::Reactor<HouseSm, const Panel, rt::On<&Panel::lampSwitch, &HouseSm::handleLampSwitch>> panel_;
};

namespace {

const rt::RegisteredTypes<LampSwitch, Lamp, Panel, LampSm, HouseSm> registered;

class Lamps : public testing::Test {
 protected:
  bool lit(const char* room) const { return house_->lampSm(room)->lamp()->lit(); }

  const rt::Ptr<rt::fakes::ManualClock> clock_ = rt::make<rt::fakes::ManualClock>();
  rt::ActivityManager manager_{clock_};
  const Panel::Ptr panel_ = rt::make<Panel>();
  const HouseSm::Ptr house_ = rt::make<HouseSm>(panel_, clock_);
};

TEST_F(Lamps, GlowOnForFiveSeconds) {
  const auto hall = panel_->lampSwitchIs("hall");
  hall->onIs(true);
  EXPECT_TRUE(lit("hall"));
  hall->onIs(false);
  clock_->advance(rt::Seconds(4.9));
  EXPECT_TRUE(lit("hall"));
  clock_->advance(rt::Seconds(0.1));
  EXPECT_FALSE(lit("hall"));
}

TEST_F(Lamps, GlowOnFromTheLastTimeTheyWereSwitchedOff) {
  const auto hall = panel_->lampSwitchIs("hall");
  hall->onIs(true);
  hall->onIs(false);
  clock_->advance(rt::Seconds(3));
  hall->onIs(true);
  clock_->advance(rt::Seconds(1));
  hall->onIs(false);
  clock_->advance(rt::Seconds(4.9));
  EXPECT_TRUE(lit("hall"));
  clock_->advance(rt::Seconds(0.1));
  EXPECT_FALSE(lit("hall"));
}

TEST_F(Lamps, ComeAndGoWithTheirSwitches) {
  const auto hall = panel_->lampSwitchIs("hall");
  const auto machine = house_->lampSm("hall");
  panel_->lampSwitchDel("hall");
  EXPECT_TRUE(house_->lampSms().empty());
  hall->onIs(true);
  EXPECT_FALSE(machine->lamp()->lit());  // a machine that was removed hears nothing
}

TEST_F(Lamps, OfAPanelThatWasThereFirstAreLit) {
  panel_->lampSwitchIs("hall")->onIs(true);
  const auto second = rt::make<HouseSm>(panel_, clock_);
  EXPECT_TRUE(second->lampSm("hall")->lamp()->lit());
}

TEST_F(Lamps, AreSwitchedByName) {
  const rt::AttributeInfo* switches = panel_->type().find("lampSwitch");
  switches->memberIs(*panel_, "hall", [](rt::Entity& lampSwitch) {
    rt::attributeTextIs(lampSwitch, "on", "true");  // nobody has heard of the switch yet
  });
  EXPECT_TRUE(lit("hall"));
  EXPECT_EQ(rt::attributeText(*panel_->lampSwitch("hall"), "on"), "true");
  EXPECT_THROW(rt::attributeTextIs(*panel_->lampSwitch("hall"), "on", "perhaps"),
               rt::AttributeException);
}

TEST_F(Lamps, AreOfRegisteredTypes) {
  const rt::TypeInfo* type = rt::typeRegistry().type("House::LampSwitch");
  ASSERT_NE(type, nullptr);
  EXPECT_EQ(type->attributes.size(), 2U);
}

TEST_F(Lamps, AreTracedWhenTheyGoOut) {
  panel_->lampSwitchIs("hall");
  rt::fakes::TraceRecorder traces;
  clock_->advance(afterglow);
  EXPECT_EQ(traces.take(), std::vector<std::string>{"7 handleGoOut hall"});
}

}  // namespace

}  // namespace House
