// What is said on a shim's own socket, RUN/vm/NAME/shim.sock: the words, and the version.
//
//   the shim, to each who connects  {"shim":1,"vm":NAME,"pid":N,"qemu":N,"state":STATE}
//   {"status":{}}                   {"return":{"state":STATE,"qemu":N,"agent":BOOL,
//                                     "console":PATH,"problems":[TEXT…]}}
//   {"stop":{"timeout":SECONDS}}    {"return":{}}; once more: sooner, if that is sooner, and with 0
//                                     the next step is taken at once
//   {"adopt":{"pid":N,"daemon":N,   {"return":{}}, and the monitor's listening socket with it; or
//     "arguments":[TEXT…]}}         an error as long as the guest is not free
//   {"row":{"store":TEXT,           {"return":{}}: of that row the guest is from now on
//     "sequence":N}}
//   {"line":{"card":MAC,"up":BOOL}} {"return":{}}: at a card whose line is not up the guest sees no
//                                     carrier, whatever the agent has for it. Until it is told: up
//   {"pause":{}} {"resume":{}}      {"return":{}} once QEMU has done it, or {"error":TEXT}. Whom an
//   {"reset":{}} {"nmi":{}}         operator paused, the agent does not let run
//   {"key":{"keys":[NAME…]}}        likewise: they are pressed together
//   {"screenshot":{}}               likewise, and with the answer a descriptor to read the PNG from
//   anything else                   {"error":TEXT}, and nothing changes
//   the guest's end, to all         {"end":{"exit":N}} or {"end":{"signal":N}}
//
// Each of an operator's requests, stop among them, may have a member "by" in it: the operator's
// name, which counts where root asks. One line each, ended by LF. STATE is "starting", "running" or
// "stopping". Members that are not known are ignored, so that the protocol can grow; "shim" is
// another number when it breaks.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace guest {

inline constexpr int shimProtocol = 1;

namespace word {

// What a line is, by its first member.
inline constexpr const char* shim = "shim";
inline constexpr const char* status = "status";
inline constexpr const char* stop = "stop";
inline constexpr const char* adopt = "adopt";
inline constexpr const char* row = "row";
inline constexpr const char* line = "line";
inline constexpr const char* pause = "pause";
inline constexpr const char* resume = "resume";
inline constexpr const char* reset = "reset";
inline constexpr const char* interrupt = "nmi";
inline constexpr const char* key = "key";
inline constexpr const char* screenshot = "screenshot";
inline constexpr const char* done = "return";
inline constexpr const char* error = "error";
inline constexpr const char* end = "end";
inline constexpr std::array requests{status, stop,  adopt,     row, line,      pause,
                                     resume, reset, interrupt, key, screenshot};

// The members.
inline constexpr const char* vm = "vm";
inline constexpr const char* pid = "pid";
inline constexpr const char* qemu = "qemu";
inline constexpr const char* state = "state";
inline constexpr const char* agent = "agent";
inline constexpr const char* console = "console";
inline constexpr const char* problems = "problems";
inline constexpr const char* timeout = "timeout";
inline constexpr const char* daemon = "daemon";
inline constexpr const char* arguments = "arguments";
inline constexpr const char* store = "store";
inline constexpr const char* sequence = "sequence";
inline constexpr const char* card = "card";
inline constexpr const char* up = "up";
inline constexpr const char* by = "by";
inline constexpr const char* keys = "keys";
inline constexpr const char* exit = "exit";
inline constexpr const char* signal = "signal";

}  // namespace word

// How far the shim's guest is; the names are the values of "state".
enum class ShimState { starting, running, stopping };
inline constexpr std::array<std::string_view, 3> shimStates{"starting", "running", "stopping"};

// Asks to have the guest shut down within so many seconds, and to end it then. A line. `by`: for
// whom, printable ASCII without quotes; empty: that is not said.
std::string stopRequest(std::string_view seconds, std::string_view by = {});
// Tells of which row the guest is from now on: `store` is a name of letters, digits, '-', '_', '.'.
std::string rowRequest(std::string_view store, uint64_t sequence);
// Tells whether the line of the card with that address is up. A line.
std::string lineRequest(std::string_view card, bool isUp);
// Whether a shim that greets so has been asked to stop, or is ending its guest by itself.
bool isStopping(std::string_view greeting);

}  // namespace guest
