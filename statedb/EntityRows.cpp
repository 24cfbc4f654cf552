#include "statedb/EntityRows.h"

#include "runtime/base/Check.h"
#include "statedb/EntityDocument.h"

namespace statedb {

namespace {

const rt::AttributeInfo& collectionOf(const rt::Entity& root, std::string_view name) {
  const rt::AttributeInfo* const found = root.type().find(name);
  rt::check(found && found->kind == rt::AttributeKind::entities, "a collection of records");
  return *found;
}

}  // namespace

EntityRows::EntityRows(rt::Ptr<const rt::Entity> root, std::string_view collection,
                       rt::String table)
    : collection_(collectionOf(*root, collection)),
      index_(static_cast<size_t>(&collection_ - root->type().attributes.data())),
      table_(std::move(table)),
      root_(*this, std::move(root)) {
  handleInitialized();
}

void EntityRows::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
  for (const rt::String& key : collection_.keys(*root_.notifier())) follow(key);
}

void EntityRows::handleRoot(const rt::Entity& /*root*/, const rt::Change& change) {
  if (change.attribute == index_) follow(collection_.keyText(change.key));
}

void EntityRows::handleMember(const rt::Entity& member, const rt::Change& /*change*/) {
  changed_.insert(keys_.at(&member));
}

// Attends to the record that is under the key now, if any.
void EntityRows::follow(const rt::String& key) {
  changed_.insert(key);
  const rt::Ptr<const rt::Entity> now = collection_.member(*root_.notifier(), key);
  if (const auto old = members_.find(key); old != members_.end()) {
    if (old->second.notifier() == now) return;
    keys_.erase(old->second.notifier().get());
    members_.erase(old);
  }
  if (!now) return;
  keys_[now.get()] = key;
  members_.try_emplace(key, *this, now);
}

void EntityRows::update(RowWriter& writer) {
  for (const rt::String& key : std::exchange(changed_, {})) {
    if (const auto record = collection_.member(*root_.notifier(), key))
      writer.rowIs(table_, key, documentOf(*record));
    else
      writer.rowDel(table_, key);
  }
}

}  // namespace statedb
