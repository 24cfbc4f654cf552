// Records shown as rows: one way, by generic attribute access.
#pragma once

#include <map>
#include <set>
#include <string_view>

#include "runtime/entity/Reactor.h"
#include "statedb/RowWriter.h"

namespace statedb {

// Keeps a row of `table` for each member of a collection of records: the member's key and document.
// What others write there never reaches the records. Owned by the host, which calls update() once a
// pass of its loop, so that a record that changed many times is written once.
class EntityRows final : public rt::StateMachineOf<EntityRows> {
 public:
  // `collection` names an attribute of `root`: a keyed collection of records.
  EntityRows(rt::Ptr<const rt::Entity> root, std::string_view collection, rt::String table);

  // Hands what changed to `writer`.
  void update(RowWriter& writer);

  static constexpr std::string_view typeName = "statedb::EntityRows";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &EntityRows::initialized>>;

 private:
  void handleInitialized();
  void handleRoot(const rt::Entity& root, const rt::Change& change);
  void handleMember(const rt::Entity& member, const rt::Change& change);
  void follow(const rt::String& key);

  const rt::AttributeInfo& collection_;
  const size_t index_;  // of the collection among the root's attributes
  const rt::String table_;
  std::set<rt::String> changed_;
  std::map<const rt::Entity*, rt::String> keys_;

  using MemberReactor = rt::AnyReactor<EntityRows, &EntityRows::handleMember>;
  std::map<rt::String, MemberReactor> members_;
  rt::AnyReactor<EntityRows, &EntityRows::handleRoot> root_;
};

}  // namespace statedb
