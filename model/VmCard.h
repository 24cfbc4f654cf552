// How a card of a guest is.
#pragma once

#include <string_view>

#include "runtime/entity/EntityOf.h"

namespace model {

namespace link {

inline constexpr std::string_view up = "up";
inline constexpr std::string_view noCarrier = "noCarrier";  // its interface has none
inline constexpr std::string_view gone = "gone";            // there is no such interface
inline constexpr std::string_view none = "none";  // all is there, and it is not attached yet

}  // namespace link

// The VM of a row "VM/KEY": no VM's name has a slash.
inline rt::String vmOfCard(std::string_view row) {
  return rt::String(row.substr(0, row.find('/')));
}

// A card of a guest that has a process, under "VM/KEY". Written by CardStatus.
class VmCard final : public rt::EntityOf<VmCard> {
 public:
  explicit VmCard(rt::String key) : key_(std::move(key)) {}

  const rt::String& key() const { return key_; }

  // The one that it is on, which its row may not name any more.
  const rt::String& interface() const { return interface_; }
  void interfaceIs(const rt::String& id) { assign<&VmCard::interface>(interface_, id); }
  // Its macvtap device; empty: it has had none.
  const rt::String& tap() const { return tap_; }
  void tapIs(const rt::String& device) { assign<&VmCard::tap>(tap_, device); }
  // A word of `link`.
  const rt::String& link() const { return link_; }
  void linkIs(const rt::String& word) { assign<&VmCard::link>(link_, word); }
  // When that changed last, in seconds since 1970.
  uint64_t since() const { return since_; }
  void sinceIs(uint64_t time) { assign<&VmCard::since>(since_, time); }

  static constexpr std::string_view typeName = "model::VmCard";
  using Attributes =
      rt::AttributeTable<rt::Attribute<"key", &VmCard::key>,
                         rt::Attribute<"interface", &VmCard::interface, &VmCard::interfaceIs>,
                         rt::Attribute<"tap", &VmCard::tap, &VmCard::tapIs>,
                         rt::Attribute<"link", &VmCard::link, &VmCard::linkIs>,
                         rt::Attribute<"since", &VmCard::since, &VmCard::sinceIs>>;

 private:
  const rt::String key_;
  rt::String interface_;
  rt::String tap_;
  rt::String link_;
  uint64_t since_ = 0;
};

}  // namespace model
