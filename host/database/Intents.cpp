#include "host/database/Intents.h"

#include "host/base/Problems.h"
#include "host/base/Report.h"
#include "runtime/entity/EntityOf.h"
#include "statedb/EntityDocument.h"

namespace host {

// A row of vmIntent.
class VmIntent final : public rt::EntityOf<VmIntent> {
 public:
  explicit VmIntent(rt::String name) : name_(std::move(name)) {}

  const rt::String& name() const { return name_; }
  uint64_t restart() const { return restart_; }
  void restartIs(uint64_t number) { assign<&VmIntent::restart>(restart_, number); }
  const rt::String& remove() const { return remove_; }
  void removeIs(const rt::String& guest) { assign<&VmIntent::remove>(remove_, guest); }

  static constexpr std::string_view typeName = "host::VmIntent";
  using Attributes =
      rt::AttributeTable<rt::Attribute<"name", &VmIntent::name>,
                         rt::Attribute<"restart", &VmIntent::restart, &VmIntent::restartIs>,
                         rt::Attribute<"remove", &VmIntent::remove, &VmIntent::removeIs>>;

 private:
  const rt::String name_;
  uint64_t restart_ = 0;
  rt::String remove_;
};

Intent intentOf(const statedb::Record& row) {
  const auto intent = rt::make<VmIntent>(row.key);
  const auto problems = statedb::fill(*intent, row.doc);
  if (problems.empty()) return {intent->restart(), intent->remove()};
  report("vmIntent of VM " + row.key + ": " + textOf(problems));
  return {};
}

}  // namespace host
