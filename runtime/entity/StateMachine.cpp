#include "runtime/entity/StateMachine.h"

namespace rt {

HandlerSource::HandlerSource(Dispatch dispatch, StateMachine& owner)
    : ReactorLink(dispatch), owner_(owner.retired_ ? nullptr : &owner), next_(owner.sources_) {
  if (owner_) owner_->sources_ = this;
}

HandlerSource::~HandlerSource() {
  if (!owner_) return;
  HandlerSource** place = &owner_->sources_;
  while (*place != this) place = &(*place)->next_;
  *place = next_;
}

void StateMachine::hasNotificationActiveIs(bool active) {
  Entity::hasNotificationActiveIs(active);
  for (HandlerSource* source = sources_; source; source = source->next_)
    source->hasNotificationActiveIs(active);
}

void StateMachine::retire() {
  retired_ = true;
  while (sources_) {
    HandlerSource* const source = std::exchange(sources_, sources_->next_);
    source->detach();
    source->owner_ = nullptr;
  }
}

void StateMachine::handleZeroReferences() {
  handleEnd();
  retire();
  Entity::handleZeroReferences();
}

}  // namespace rt
