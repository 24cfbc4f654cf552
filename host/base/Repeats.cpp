#include "host/base/Repeats.h"

#include <algorithm>
#include <utility>

#include "runtime/base/Format.h"

namespace host {

Repeats::Count Repeats::heard(const rt::TraceRecord& record, const rt::String& vm,
                              rt::Seconds now) {
  if (record.message.size() > longestText) return {};
  Key key(record.file, record.line, record.message, vm);
  const auto found = known_.find(key);
  if (found == known_.end()) {
    if (known_.size() == mostKnown) forgetOld(now);
    if (known_.size() == mostKnown) return {};
    known_.emplace(std::move(key), Known{&record.handle, record.level, record.function, now, 0});
    next_ = std::min(next_, now + interval);
    return {};
  }
  Known& known = found->second;
  const rt::Seconds within = now - known.written;
  if (within < interval) {
    ++known.leftOut;
    return {0, within};
  }
  known.written = now;
  if (known.leftOut == 0) return {};
  return {std::exchange(known.leftOut, 0) + 1, within};
}

std::vector<Repeats::Due> Repeats::due(rt::Seconds now) {
  std::vector<Due> all;
  if (now < next_) return all;
  for (auto& [key, known] : known_) {
    const auto& [file, line, text, vm] = key;
    const rt::Seconds within = now - known.written;
    if (within < interval || known.leftOut == 0) continue;
    all.push_back({{*known.handle, known.level, file, line, known.function, {}},
                   text,
                   vm,
                   {std::exchange(known.leftOut, 0), within}});
    known.written = now;
  }
  forgetOld(now);
  return all;
}

void Repeats::forgetOld(rt::Seconds now) {
  std::erase_if(known_, [now](const auto& each) {
    return each.second.leftOut == 0 && now - each.second.written >= interval;
  });
  next_ = rt::Seconds::infinity();
  for (const auto& [key, known] : known_) next_ = std::min(next_, known.written + interval);
}

std::string counted(std::string_view text, const Repeats::Count& count) {
  std::string all(text);
  if (count.within == rt::Seconds(0)) return all;
  const auto times = static_cast<unsigned long long>(count.times);
  all += rt::format(" (%llu time%s in %.0f s)", times, times == 1 ? "" : "s", count.within.value());
  return all;
}

}  // namespace host
