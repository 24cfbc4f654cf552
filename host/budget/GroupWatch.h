// Control groups, watched for the end of their processes.
#pragma once

#include <functional>

#include "runtime/entity/Reactor.h"
#include "runtime/loop/FileDescriptor.h"

namespace host {

class GroupWatch final : public rt::StateMachineOf<GroupWatch> {
 public:
  // `changed` is called when any of them may have none any more.
  explicit GroupWatch(std::function<void()> changed);

  // From now on, until the group is removed.
  void watch(const rt::String& group);

  static constexpr std::string_view typeName = "host::GroupWatch";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &GroupWatch::initialized>>;

 private:
  void handleInitialized();
  void handleEvents();

  const std::function<void()> changed_;

  rt::Reactor<GroupWatch, rt::FileDescriptor,
              rt::On<&rt::FileDescriptor::readable, &GroupWatch::handleEvents>>
      events_;
};

}  // namespace host
