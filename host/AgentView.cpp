#include "host/AgentView.h"

#include "runtime/base/Check.h"
#include "runtime/base/Text.h"

namespace host {

namespace {

const rt::AttributeInfo& attributeOf(const rt::Entity& entity, std::string_view name) {
  const rt::AttributeInfo* const found = entity.type().find(name);
  rt::check(found != nullptr, "the module is of this version");
  return *found;
}

rt::Ptr<rt::Entity> entityOf(const rt::Entity& entity, std::string_view name) {
  return attributeOf(entity, name).entity(entity);
}

}  // namespace

rt::Ptr<rt::Entity> vmMachine(const rt::Entity& root, const rt::String& vm) {
  const auto agent = entityOf(root, "agent");
  const auto machines = agent ? entityOf(*agent, "vmSm") : nullptr;
  return machines ? attributeOf(*machines, "vmConfigSm").member(*machines, vm) : nullptr;
}

rt::Ptr<rt::Entity> processOf(const rt::Entity& machine) {
  return entityOf(machine, "qemuChildProcess");
}

bool isAlive(const rt::Entity& process) {
  return attributeText(process, "status") == "none" && pidOf(process) > 0;
}

int32_t pidOf(const rt::Entity& process) {
  return rt::fromText<int32_t>(attributeText(process, "pid")).value_or(0);
}

}  // namespace host
