// Assertions that hold in every build.
#pragma once

namespace rt {

[[noreturn]] void checkFailed(const char* text, const char* file, int line);

// Ends the process with `text` on standard error unless `condition` holds. For our own bugs only:
// what comes from outside is refused with an exception or a trace, never asserted. The place is the
// caller's; std::source_location would say so, but clang 14 has none.
inline void check(bool condition, const char* text, const char* file = __builtin_FILE(),
                  int line = __builtin_LINE()) {
  if (!condition) [[unlikely]]
    checkFailed(text, file, line);
}

// Misuse of the runtime is checked where NDEBUG is not defined.
#ifdef NDEBUG
inline constexpr bool debugChecks = false;
#else
inline constexpr bool debugChecks = true;
#endif

}  // namespace rt
