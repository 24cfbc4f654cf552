// What happened, in words and with its times.
#pragma once

#include <deque>
#include <functional>
#include <string>

#include "sim/base/Time.h"

namespace sim {

class Diary {
 public:
  explicit Diary(std::function<Time()> now) : now_(std::move(now)) {}

  // What somebody did.
  void step(const std::string& text) { add("", text); }
  // What came of it.
  void effect(const std::string& text) { add("    ", text); }

  // The last lines, each with its time.
  std::string text() const;
  size_t most = 400;

 private:
  void add(const char* indent, const std::string& text);

  const std::function<Time()> now_;
  std::deque<std::string> lines_;
};

// As "12.345678".
std::string secondsText(Time time);

}  // namespace sim
