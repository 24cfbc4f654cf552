#include "host/guests/GuestMark.h"

#include <algorithm>
#include <sstream>

#include "guest/Variables.h"
#include "host/guests/ProcessText.h"
#include "runtime/base/Format.h"
#include "runtime/base/Text.h"

namespace host {

namespace {

constexpr std::string_view store = guest::variable::store;
constexpr std::string_view row = guest::variable::row;

std::string_view valueIn(std::string_view environment, std::string_view name) {
  for (size_t at = 0; at < environment.size();) {
    const std::string_view variable = environment.substr(at, environment.find('\0', at) - at);
    if (variable.starts_with(name) && variable.substr(name.size()).starts_with('='))
      return variable.substr(name.size() + 1);
    at += variable.size() + 1;
  }
  return {};
}

// When a process was started, in the kernel's ticks; nothing when it has gone.
std::optional<uint64_t> startOf(int32_t pid) {
  const std::string stat = textOf(directoryOf(pid), "/stat");
  // Behind the program's name, which may hold anything.
  const size_t name = stat.rfind(')');
  if (name == std::string::npos) return std::nullopt;
  constexpr int fieldsBefore = 19;
  std::istringstream fields(stat.substr(name + 1));
  std::string field;
  for (int i = 0; i <= fieldsBefore; ++i) fields >> field;
  return rt::fromText<uint64_t>(field);
}

}  // namespace

std::optional<statedb::Origin> rowIn(std::string_view environment) {
  const std::string_view history = valueIn(environment, store);
  const auto created = rt::fromText<uint64_t>(valueIn(environment, row));
  if (history.empty() || !created || *created == 0) return std::nullopt;
  return statedb::Origin{rt::String(history), *created};
}

std::optional<statedb::Origin> rowOf(const GuestProcess& guest) {
  return rowIn(textOf(directoryOf(guest.pid), "/environ"));
}

std::vector<std::pair<rt::String, rt::String>> variablesOf(const statedb::Origin& origin) {
  return {{rt::String(store), origin.history},
          {rt::String(row), rt::format("%020ju", static_cast<uintmax_t>(origin.created))}};
}

rt::String guestName(int32_t pid) {
  const auto start = startOf(pid);
  return start ? rt::toText(pid) + "." + rt::toText(*start) : rt::String();
}

void sortByAge(std::vector<GuestProcess>& guests) {
  std::vector<std::pair<uint64_t, GuestProcess>> aged;
  aged.reserve(guests.size());
  for (GuestProcess& guest : guests)
    aged.emplace_back(startOf(guest.pid).value_or(UINT64_MAX), std::move(guest));
  std::stable_sort(aged.begin(), aged.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  std::transform(aged.begin(), aged.end(), guests.begin(),
                 [](auto& each) { return std::move(each.second); });
}

}  // namespace host
