// What is said on a shim's own socket (guest/ShimProtocol.h), as text. JSON stays behind this.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "guest/ShimProtocol.h"
#include "shim/decide/Time.h"
#include "shim/decide/Wish.h"

namespace shim::control {

using State = guest::ShimState;

// What a shim says of itself.
struct Greeting {
  int protocol = guest::shimProtocol;
  std::string vm;
  pid_t pid = 0;
  pid_t qemu = 0;
  State state = State::starting;
};

struct Status {
  State state = State::starting;
  pid_t qemu = 0;
  bool hasAgent = false;
  std::string console;  // the pty's path
  std::vector<std::string> problems;
};

// A successor's request to serve its daemon. Along with it go a descriptor of the daemon's process
// (a pidfd) and the socket that its agent finds the guest at, if it was handed one.
struct Adoption {
  pid_t pid = 0;                       // the successor's
  pid_t daemon = 0;                    // its parent's
  std::vector<std::string> arguments;  // its command line, without the program's name
};

// The row of the configuration that made the guest's VM.
struct Row {
  std::string store;
  uint64_t sequence = 0;
};

// Whether the line of one of the guest's cards is up.
struct Line {
  std::string card;  // its MAC address, in lower case
  bool isUp = true;
};

struct Request {
  enum class Kind { status, stop, adopt, row, line, wish };
  Kind kind = Kind::status;
  std::optional<Duration> timeout;  // of a stop: as configured, when there is none
  Adoption adoption;
  Row row;
  Line line;
  Wish wish;
  std::string by;  // who asks, as he says
};

// What is wrong with a request.
class RequestError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};
// Throws RequestError.
Request requestFrom(std::string_view text);

std::string greetingLine(const Greeting& greeting);
std::string statusLine(const Status& status);
std::string doneLine();
std::string errorLine(std::string_view text);
// Of a wait status.
std::string endLine(int waitStatus);

// A successor's side.
std::string adoptLine(const Adoption& adoption);
std::string stopLine(Duration timeout);

struct Saying {
  enum class Kind { greeting, done, error, end };
  Kind kind = Kind::done;
  Greeting greeting;
  std::string error;
  int waitStatus = 0;  // of an end
};
// Nothing for a text that is nothing that a shim says.
std::optional<Saying> sayingFrom(std::string_view text);

}  // namespace shim::control
