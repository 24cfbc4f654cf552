// Small entities and machines for the tests of this folder.
#pragma once

#include <functional>

#include "runtime/entity/EntityOf.h"
#include "runtime/entity/Reactor.h"

namespace rt::test {

using Log = std::vector<std::string>;

// One lamp.
class Lamp final : public EntityOf<Lamp> {
 public:
  explicit Lamp(String name = "lamp") : name_(std::move(name)) {}

  const String& name() const { return name_; }

  bool lit() const { return lit_; }
  void litIs(bool lit) { assign<&Lamp::lit>(lit_, lit); }

  uint32_t watts() const { return watts_; }
  void wattsIs(uint32_t watts) { assign<&Lamp::watts>(watts_, watts); }

  static constexpr std::string_view typeName = "Test::Lamp";
  using Attributes =
      AttributeTable<Attribute<"name", &Lamp::name>, Attribute<"lit", &Lamp::lit, &Lamp::litIs>,
                     Attribute<"watts", &Lamp::watts, &Lamp::wattsIs>>;

 private:
  const String name_;
  bool lit_ = false;
  uint32_t watts_ = 0;
};

// Lamps by name, readings of a meter by number, and one lamp by the door.
class House : public EntityOf<House> {
 public:
  using Lamps = Collection<String, Lamp::Ptr>;
  using Readings = Collection<uint32_t, String>;

  const Lamps& lamps() const { return lamp_; }
  Lamp::Ptr lamp(const String& name) const { return lamp_.get(name); }
  Lamp::Ptr lampIs(const String& name) { return instantiate<&House::lamp>(lamp_, name, name); }
  void lampMount(const Lamp::Ptr& lamp) { mount<&House::lamp, &Lamp::name>(lamp_, lamp); }
  Lamp::Ptr lampDel(const String& name) { return remove<&House::lamp>(lamp_, name); }
  void lampDelAll() { removeAll<&House::lamp>(lamp_); }

  const Readings& readings() const { return reading_; }
  String reading(uint32_t number) const { return reading_.get(number); }
  void readingIs(uint32_t number, const String& text) {
    store<&House::reading>(reading_, number, text);
  }
  void readingDel(uint32_t number) { remove<&House::reading>(reading_, number); }

  const Lamp::Ptr& doorLamp() const { return doorLamp_; }
  Lamp::Ptr doorLampIs(const String& name) {
    if (doorLamp_)
      requireSame<Lamp, &Lamp::name>(*doorLamp_, name);
    else
      assign<&House::doorLamp>(doorLamp_, make<Lamp>(name));
    return doorLamp_;
  }
  void doorLampDel() { drop<&House::doorLamp>(doorLamp_); }

  static constexpr std::string_view typeName = "Test::House";
  using Attributes = AttributeTable<
      CollectionAttribute<"lamp", &House::lamp, &House::lamps, &House::lampMount, &House::lampDel>,
      CollectionAttribute<"reading", &House::reading, &House::readings, &House::readingIs,
                          &House::readingDel>,
      Attribute<"doorLamp", &House::doorLamp>>;

 private:
  Lamps lamp_;
  Readings reading_;
  Lamp::Ptr doorLamp_;
};

// Runs a function when its lamp is lit or put out.
class Watcher final : public StateMachineOf<Watcher> {
 public:
  explicit Watcher(
      const Lamp::Ptr& lamp, std::function<void()> work = [] {})
      : work_(std::move(work)), lamp_(*this, lamp) {
    initializedIs(true);
  }
  ~Watcher() override {
    if (atEnd) atEnd();
  }

  const Lamp::Ptr& lamp() const { return lamp_.notifier(); }
  void lampIs(const Lamp::Ptr& lamp) { lamp_.notifierIs(lamp); }
  HandlerSource& source() { return lamp_; }
  bool registered() const { return lamp_.registered(); }

  std::function<void()> atEnd;      // run by the destructor
  std::function<void()> atLastAct;  // run by handleEnd()

  static constexpr std::string_view typeName = "Test::Watcher";
  using Attributes = AttributeTable<Attribute<"initialized", &Watcher::initialized>,
                                    Attribute<"lamp", &Watcher::lamp>>;

 private:
  void handleLit() { work_(); }
  void handleEnd() override {
    if (atLastAct) atLastAct();
  }

  std::function<void()> work_;
  Reactor<Watcher, Lamp, On<&Lamp::lit, &Watcher::handleLit>> lamp_;
};

// Runs functions with the keys of the lamps and readings that come, go or change in its house.
class HouseWatcher final : public StateMachineOf<HouseWatcher> {
 public:
  using LampWork = std::function<void(const String&)>;
  using ReadingWork = std::function<void(uint32_t)>;

  explicit HouseWatcher(
      const House::Ptr& house, LampWork lampWork = [](const String&) {},
      ReadingWork readingWork = [](uint32_t) {}, std::function<void()> doorLampWork = [] {})
      : lampWork_(std::move(lampWork)),
        readingWork_(std::move(readingWork)),
        doorLampWork_(std::move(doorLampWork)),
        house_(*this, house) {}

  static constexpr std::string_view typeName = "Test::HouseWatcher";
  using Attributes = AttributeTable<Attribute<"initialized", &HouseWatcher::initialized>>;

 private:
  void handleLamp(const String& name) { lampWork_(name); }
  void handleReading(uint32_t number) { readingWork_(number); }
  void handleDoorLamp() { doorLampWork_(); }

  LampWork lampWork_;
  ReadingWork readingWork_;
  std::function<void()> doorLampWork_;
  Reactor<HouseWatcher, House, On<&House::lamp, &HouseWatcher::handleLamp>,
          On<&House::reading, &HouseWatcher::handleReading>,
          On<&House::doorLamp, &HouseWatcher::handleDoorLamp>>
      house_;
};

// Owns watchers: one as an attribute, the others by name.
class Office final : public EntityOf<Office> {
 public:
  using Watchers = Collection<String, Watcher::Ptr>;

  const Watcher::Ptr& guard() const { return guard_; }
  Watcher::Ptr guardIs(
      const Lamp::Ptr& lamp, std::function<void()> work = [] {}) {
    if (guard_)
      requireSame<Watcher, &Watcher::lamp>(*guard_, lamp);
    else
      assign<&Office::guard>(guard_, make<Watcher>(lamp, std::move(work)));
    return guard_;
  }
  Watcher::Ptr guardDel() { return drop<&Office::guard>(guard_); }

  const Watchers& watchers() const { return watcher_; }
  Watcher::Ptr watcher(const String& name) const { return watcher_.get(name); }
  Watcher::Ptr watcherIs(
      const String& name, const Lamp::Ptr& lamp, std::function<void()> work = [] {}) {
    return instantiate<&Office::watcher>(watcher_, name, lamp, std::move(work));
  }
  Watcher::Ptr watcherDel(const String& name) { return remove<&Office::watcher>(watcher_, name); }
  void watcherDelAll() { removeAll<&Office::watcher>(watcher_); }

  static constexpr std::string_view typeName = "Test::Office";
  using Attributes =
      AttributeTable<Attribute<"guard", &Office::guard>,
                     CollectionAttribute<"watcher", &Office::watcher, &Office::watchers>>;

 private:
  Watcher::Ptr guard_;
  Watchers watcher_;
};

// A handler that writes `line` into `log`.
inline std::function<void()> says(Log& log, std::string line) {
  return [&log, line = std::move(line)] { log.push_back(line); };
}

// What `act` throws, as text; empty when it throws nothing.
template <class E, class Act>
std::string thrownBy(Act act) {
  try {
    act();
  } catch (const E& e) {
    return e.what();
  }
  return {};
}

}  // namespace rt::test
