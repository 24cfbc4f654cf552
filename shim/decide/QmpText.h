// QMP messages as text, in both directions. JSON stays behind this.
//
// Texts that are made here are one line of ASCII or UTF-8, and end in CRLF to the agent, LF to
// QEMU.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace shim::qmp {

// What a client asks for.
struct Request {
  std::string execute;
  std::string id;                            // as JSON; empty for none
  std::string arguments;                     // as JSON; empty for none
  std::map<std::string, std::string> texts;  // those of the arguments that are strings
  bool up = false;                           // whether there is an argument "up" and it is true
};

// Nothing for a text that is no request.
std::optional<Request> requestFrom(std::string_view text);

constexpr size_t longestDescription = 500;

// What QEMU says.
struct Saying {
  enum class Kind { greeting, event, result, refusal };
  Kind kind = Kind::event;
  std::optional<uint64_t> id;  // of the request it answers, when that is a number, as ours are
  std::string value;           // as JSON, of a result or refusal
  std::string description;     // of a refusal, for people: longestDescription bytes, and "..."
  std::string event;           // its name, of an event
  std::map<std::string, std::string> texts;  // those of an event's data that are strings
  std::optional<bool> byGuest;               // what an event's data say of that
};

// The version that a greeting tells, such as "7.2.22"; empty for any other text.
std::string versionFrom(std::string_view greeting);

// Nothing for a text that is nothing that QEMU says.
std::optional<Saying> sayingFrom(std::string_view text);

// To QEMU, with our number as its id if it has one.
std::string requestLine(std::string_view execute, std::string_view arguments,
                        std::optional<uint64_t> id);

// To the agent, with the id of its request as JSON.
std::string returnLine(std::string_view id, std::string_view value = "{}");
std::string refusalLine(std::string_view id, std::string_view value);
std::string errorLine(std::string_view id, std::string_view description);

// How many viewers the value of an answer to query-vnc-servers has.
size_t screenViewers(const std::string& servers);

// `text` as a JSON string. Bytes that are no UTF-8 make it empty.
std::string quoted(std::string_view text);

// The value of an answer to query-chardev with other file names for the devices of these labels.
// Others whose labels begin so are left out, for an agent goes by the begin, and people open what
// stands there: that is not QEMU's to choose. What is no array becomes an empty one.
std::string withFileNames(const std::string& chardevs,
                          const std::map<std::string, std::string>& namesByLabel);

}  // namespace shim::qmp
