// Entities: objects with named attributes, whose changes reactors are told of.
#pragma once

#include <cstdint>

#include "runtime/entity/AttributeInfo.h"
#include "runtime/entity/Ptr.h"

namespace rt {

using AttributeIndex = uint16_t;  // place in the type's table of attributes

// What a reactor is told: which attribute changed and, for a collection, under which key. Never the
// value: a handler reads the entity, so it acts on what is true now.
struct Change {
  AttributeIndex attribute;
  const void* key;  // points to the collection's key type; null for other attributes
};

// A node of an entity's list of reactors. One without `dispatch` only marks a place in the list.
class ReactorLink {
 public:
  using Dispatch = void (*)(ReactorLink&, const Change&);

  explicit ReactorLink(Dispatch dispatch = nullptr) : dispatch_(dispatch) {}
  ReactorLink(const ReactorLink&) = delete;
  ~ReactorLink() { unlink(); }

  bool linked() const { return next_ != this; }
  void insertBefore(ReactorLink& place) {
    unlink();
    previous_ = place.previous_;
    next_ = &place;
    previous_->next_ = next_->previous_ = this;
  }
  void unlink() {
    previous_->next_ = next_;
    next_->previous_ = previous_;
    previous_ = next_ = this;
  }

 private:
  friend class Entity;
  ReactorLink* previous_ = this;
  ReactorLink* next_ = this;
  const Dispatch dispatch_;
};

// Base of every object of the system. Attributes are declared with EntityOf.
class Entity : public RefCounted {
 public:
  virtual const TypeInfo& type() const = 0;

  // The entity tree: whom this one was attached under, or null. Neither end owns the other; when a
  // parent ends, its children are detached.
  Entity* parent() const { return parent_; }
  void parentIs(Entity* parent);
  const Entity* firstChild() const { return firstChild_; }
  const Entity* nextSibling() const { return nextSibling_; }

  // Delivery of this entity's notifications, on from construction. What changes while it is off is
  // not told later.
  bool hasNotificationActive() const { return notificationActive_; }
  virtual void hasNotificationActiveIs(bool active) { notificationActive_ = active; }

  // Once an entity is marked for deletion, reactors on it ignore its notifications.
  bool deletionMark() const { return deletionMark_; }
  void deletionMarkIs(bool mark) { deletionMark_ = mark; }

  // Called by the owner's mutator that takes this entity out of its attribute or collection.
  virtual void handleRemoval() {}

  // For a reactor: puts it last in this entity's list. The reactor keeps a reference to the entity.
  void reactorIs(ReactorLink& reactor) const { reactor.insertBefore(reactors_); }
  bool hasReactors() const { return reactors_.linked(); }

 protected:
  Entity() = default;
  ~Entity() override;

  // Tells each reactor that was attached when this began and still is when its turn comes, in the
  // order they were attached. Nothing is allocated. Handlers may attach, detach, change attributes
  // (which notifies at once, nested), drop the last reference to this entity or to their own
  // machine; an exception of a handler ends the round and passes through.
  void notify(const Change& change);

  // In debug builds: ends the process when reactors are still attached to a `type` that ends.
  void checkNoReactors(std::string_view type) const;

 private:
  void detachFromParent();

  mutable ReactorLink reactors_;
  Entity* parent_ = nullptr;
  Entity* firstChild_ = nullptr;
  Entity* nextSibling_ = nullptr;
  bool notificationActive_ = true;
  bool deletionMark_ = false;
};

// Where notifications may run: the thread that the activity manager belongs to. Tells nothing
// while there is none. Set by the activity manager.
void notificationThreadIs(bool known);

}  // namespace rt
