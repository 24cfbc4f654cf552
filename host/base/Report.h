// What the host itself has to report.
#pragma once

#include <exception>
#include <utility>

#include "runtime/base/String.h"

namespace host {

// A level-1 message.
void report(const rt::String& text);

// The text of what `step` throws; empty when nothing was thrown. Handlers may throw anything; the
// daemon goes on.
template <class Step>
rt::String failureOf(Step&& step) {
  try {
    std::forward<Step>(step)();
    return {};
  } catch (const std::exception& e) {
    return e.what();
  } catch (...) {
    return "an exception of an unknown kind";
  }
}

}  // namespace host
