// The words of a VM's file "events", in which its shim writes what happens to its guest.
//
// The file is RUN/vm/NAME/events; what is older stands in events.1. A line is a JSON object with
// those of the following members that say something:
//
//   run, n          which run of the VM it is, by when that began, and which line of it, from 1 on
//   at, up          when: ms since 1970, and ms since the machine was booted
//   kind            a word, see below
//   reason, text    a word of QEMU's; a sentence or a name
//   byGuest         whether the guest did it itself
//   by, uid         who asked for it: a name that root gave, and whose the asking process was
//   pid, exit, signal, skipped    numbers
//
// A shim that was killed has written no "end".
#pragma once

#include <string_view>

namespace guest::event {

inline constexpr std::string_view started = "started";  // pid: QEMU's; text: what was executed
inline constexpr std::string_view ready = "ready";      // text: QEMU's version
inline constexpr std::string_view resumed = "resumed";  // the guest runs: first, or again
inline constexpr std::string_view paused = "paused";
inline constexpr std::string_view reset = "reset";  // reason, byGuest
inline constexpr std::string_view suspended = "suspended";
inline constexpr std::string_view wokenUp = "woken-up";
inline constexpr std::string_view shutDown = "shut-down";  // reason, byGuest
inline constexpr std::string_view panicked = "panicked";   // reason: what QEMU does about it
inline constexpr std::string_view watchdog = "watchdog";   // reason: likewise
inline constexpr std::string_view diskError =
    "disk-error";  // reason: what QEMU does about it; text: why
// An operator asks its shim for something; reason: the word of guest/ShimProtocol.h.
inline constexpr std::string_view wished = "wished";
inline constexpr std::string_view askedToEnd = "asked-to-end";  // its power button is pressed
inline constexpr std::string_view toldToEnd = "told-to-end";    // text: by whose signal
inline constexpr std::string_view quit = "quit";                // QEMU is asked to
inline constexpr std::string_view terminated = "terminated";    // SIGTERM is sent to QEMU
inline constexpr std::string_view killed = "killed";            // SIGKILL is; text: why
inline constexpr std::string_view silent = "silent";            // QEMU does not answer
inline constexpr std::string_view answers = "answers";          // it does again
inline constexpr std::string_view end = "end";  // exit or signal; text: QEMU's last line, or why
// The reason of an end.
inline constexpr std::string_view memoryLimit = "memory-limit";

}  // namespace guest::event
