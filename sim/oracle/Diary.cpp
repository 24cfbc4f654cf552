#include "sim/oracle/Diary.h"

#include <cstdio>

namespace sim {

std::string secondsText(Time time) {
  char text[32];
  constexpr double perSecond = 1e9;
  std::snprintf(text, sizeof text, "%12.6f", static_cast<double>(time.count()) / perSecond);
  return text;
}

void Diary::add(const char* indent, const std::string& text) {
  lines_.push_back(secondsText(now_()) + " " + indent + text);
  if (lines_.size() > most) lines_.pop_front();
}

std::string Diary::text() const {
  std::string all;
  for (const std::string& each : lines_) all += each + "\n";
  return all;
}

}  // namespace sim
