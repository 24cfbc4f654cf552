#include "host/database/FieldChanges.h"

#include <set>

#include "runtime/entity/Entity.h"

namespace host {

namespace {

class Changes {
 public:
  void add(const rt::String& change) { (text_ += text_.empty() ? "" : ", ") += change; }
  const rt::String& text() const { return text_; }

 private:
  rt::String text_;
};

rt::String shown(const rt::String& value) { return value.empty() ? rt::String("none") : value; }

void compare(const rt::Entity& before, const rt::Entity& after, const rt::String& path,
             Changes& changes);

void compareMembers(const rt::AttributeInfo& attribute, const rt::Entity& before,
                    const rt::Entity& after, const rt::String& path, Changes& changes) {
  const std::vector<rt::String> old = attribute.keys(before);
  const std::vector<rt::String> now = attribute.keys(after);
  const std::set<rt::String> known(old.begin(), old.end());
  const std::set<rt::String> there(now.begin(), now.end());
  for (const rt::String& key : now) {
    if (!known.contains(key))
      changes.add(path + "." + key + " added");
    else
      compare(*attribute.member(before, key), *attribute.member(after, key), path + "." + key,
              changes);
  }
  for (const rt::String& key : old)
    if (!there.contains(key)) changes.add(path + "." + key + " removed");
}

void compare(const rt::Entity& before, const rt::Entity& after, const rt::String& path,
             Changes& changes) {
  for (const rt::AttributeInfo& attribute : before.type().attributes) {
    const rt::String name = (path.empty() ? rt::String() : path + ".") + rt::String(attribute.name);
    if (attribute.kind == rt::AttributeKind::entities) {
      compareMembers(attribute, before, after, name, changes);
    } else if (attribute.kind == rt::AttributeKind::scalar && attribute.textIs) {  // not its key
      const rt::String old = attribute.text(before);
      const rt::String now = attribute.text(after);
      if (old != now) changes.add(name + " " + shown(old) + " -> " + shown(now));
    }
  }
}

}  // namespace

rt::String changesText(const rt::Entity& before, const rt::Entity& after) {
  Changes changes;
  compare(before, after, {}, changes);
  return changes.text();
}

}  // namespace host
