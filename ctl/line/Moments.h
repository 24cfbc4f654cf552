// Moments, as people write them.
#pragma once

#include <cstdint>

#include "runtime/base/String.h"

namespace ctl {

// What `text` means, in seconds since 1970: "90s", "30m", "1h" and "2d" (or "-1h") before `now`,
// "23:50", "2026-11-21", "2026-11-21 23:50" and with seconds, "today", "yesterday", "boot" and
// "@1795303750". By the clock on the wall; a time of day that is still to come was yesterday's.
// Refuses, with Exit::usage, what is no such moment, and one that is still to come. `booted`: 0
// where it is not known.
uint64_t momentOf(const rt::String& text, uint64_t now, uint64_t booted);

// "23:56:13", with the date where that is not today's.
rt::String clockText(uint64_t moment, uint64_t now);

}  // namespace ctl
