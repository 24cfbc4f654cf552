#include "runtime/entity/Entity.h"

#include <cstdlib>
#include <thread>
#include <type_traits>

#include "runtime/base/Check.h"
#include "runtime/base/Format.h"

// g++ 12 takes the markers of notify() for dangling; their destructors take them out of the list.
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wdangling-pointer"
#endif

namespace rt {

bool threadSafePtrsSwitch = false;
void threadSafePtrsIs(bool on) { threadSafePtrsSwitch = on; }

namespace {

constexpr int maxNotificationDepth = 64;
thread_local int notificationDepth = 0;
std::thread::id notificationThread;

String describe(const Entity& entity, const Change& change) {
  const auto& type = entity.type();
  return format("%s.%s", String(type.name).charPtr(),
                String(type.attributes[change.attribute].name).charPtr());
}

// Counts the notifications that are nested in one another, and checks the thread they run on.
class NotificationGuard {
 public:
  NotificationGuard(const Entity& entity, const Change& change) {
    if (notificationThread != std::thread::id() && notificationThread != std::this_thread::get_id())
      check(false, format("%s changed on a thread other than the activity thread",
                          describe(entity, change).charPtr())
                       .charPtr());
    if (++notificationDepth > maxNotificationDepth)
      check(false, format("notifications are nested more than %d deep; the last is of %s",
                          maxNotificationDepth, describe(entity, change).charPtr())
                       .charPtr());
  }
  NotificationGuard(const NotificationGuard&) = delete;
  ~NotificationGuard() { --notificationDepth; }
};

struct NoGuard {
  NoGuard(const Entity&, const Change&) {}
};

}  // namespace

void notificationThreadIs(bool known) {
  notificationThread = known ? std::this_thread::get_id() : std::thread::id();
}

void Entity::notify(const Change& change) {
  if (!reactors_.linked() || !notificationActive_) return;
  const Ptr<Entity> alive(this);
  [[maybe_unused]] const std::conditional_t<debugChecks, NotificationGuard, NoGuard> guard(*this,
                                                                                           change);
  // Two markers travel in the list itself, so that whatever handlers link and unlink, the cursor's
  // neighbour is right. What is attached meanwhile goes behind `end`.
  ReactorLink end;
  ReactorLink cursor;
  end.insertBefore(reactors_);
  cursor.insertBefore(*reactors_.next_);
  while (cursor.next_ != &end) {
    ReactorLink& current = *cursor.next_;
    cursor.insertBefore(*current.next_);
    if (current.dispatch_) current.dispatch_(current, change);
  }
}

Entity::~Entity() {
  while (firstChild_) firstChild_->parentIs(nullptr);
  detachFromParent();
}

void Entity::checkNoReactors(std::string_view type) const {
  if constexpr (debugChecks)
    if (hasReactors())
      check(false,
            format("a %s is destroyed while reactors are attached to it", String(type).charPtr())
                .charPtr());
}

void Entity::parentIs(Entity* parent) {
  if (parent == parent_) return;
  for (const Entity* above = parent; above; above = above->parent_)
    check(above != this, "an entity is attached under itself or its own child");
  detachFromParent();
  parent_ = parent;
  if (!parent) return;
  nextSibling_ = parent->firstChild_;
  parent->firstChild_ = this;
}

void Entity::detachFromParent() {
  if (!parent_) return;
  Entity** place = &parent_->firstChild_;
  while (*place != this) place = &(*place)->nextSibling_;
  *place = nextSibling_;
  nextSibling_ = nullptr;
  parent_ = nullptr;
}

}  // namespace rt
