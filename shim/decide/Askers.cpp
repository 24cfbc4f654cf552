#include "shim/decide/Askers.h"

#include <algorithm>
#include <utility>

namespace shim {

bool Askers::mayAsk(uint32_t user) const {
  return std::count_if(askers_.begin(), askers_.end(), [&](const auto& each) {
           return each.second.user == user;
         }) < static_cast<std::ptrdiff_t>(mostOfAUser);
}

uint64_t Askers::add(Asker asker) {
  askers_[++last_] = std::move(asker);
  return last_;
}

std::optional<Asker> Askers::take(uint64_t wish) {
  auto found = askers_.extract(wish);
  if (found.empty()) return std::nullopt;
  return std::move(found.mapped());
}

}  // namespace shim
