#include "shim/decide/Wish.h"

#include <algorithm>

#include "guest/ShimProtocol.h"
#include "shim/decide/Pictures.h"

namespace shim {

namespace {

namespace word = guest::word;

constexpr size_t longestKey = 24;

std::vector<Step> pressing(const std::vector<std::string>& keys) {
  std::string list;
  for (const std::string& key : keys)
    list += (list.empty() ? "" : ",") + ("{\"type\":\"qcode\",\"data\":" + qmp::quoted(key) + "}");
  return {{"send-key", "{\"keys\":[" + list + "]}"}};
}

}  // namespace

std::string_view wordOf(Wish::Kind kind) {
  switch (kind) {
    case Wish::Kind::pause:
      return word::pause;
    case Wish::Kind::resume:
      return word::resume;
    case Wish::Kind::reset:
      return word::reset;
    case Wish::Kind::interrupt:
      return word::interrupt;
    case Wish::Kind::keys:
      return word::key;
    case Wish::Kind::picture:
      return word::screenshot;
  }
  return {};
}

std::vector<Step> stepsOf(const Wish& wish, uint64_t number) {
  switch (wish.kind) {
    case Wish::Kind::pause:
      return {{"stop", ""}};
    case Wish::Kind::resume:
      return {{"cont", ""}};
    case Wish::Kind::reset:
      return {{"system_reset", ""}};
    case Wish::Kind::interrupt:
      return {{"inject-nmi", ""}};
    case Wish::Kind::keys:
      return pressing(wish.keys);
    case Wish::Kind::picture:
      return Pictures::drawing(number);
  }
  return {};
}

std::string refusalOf(const Wish& wish, bool guestHasRun) {
  const bool isOfARun = wish.kind != Wish::Kind::picture && wish.kind != Wish::Kind::keys;
  return isOfARun && !guestHasRun ? "the guest has not begun to run yet" : "";
}

bool mayBeKey(std::string_view name) {
  return !name.empty() && name.size() <= longestKey &&
         std::all_of(name.begin(), name.end(), [](char c) {
           return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
         });
}

}  // namespace shim
