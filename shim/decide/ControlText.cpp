#include "shim/decide/ControlText.h"

#include <jansson.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <memory>

#include "guest/Variables.h"
#include "runtime/base/Release.h"

namespace shim::control {

namespace {

namespace word = guest::word;
using JsonPtr = std::unique_ptr<json_t, rt::Release<json_decref>>;

constexpr size_t longestStoreName = 64;

JsonPtr jsonOf(std::string_view text) {
  // Bytes that are no UTF-8 cannot be said in JSON.
  JsonPtr value(json_stringn(text.data(), text.size()));
  return value ? std::move(value) : JsonPtr(json_string(""));
}

JsonPtr jsonOf(const std::vector<std::string>& texts) {
  JsonPtr list(json_array());
  for (const std::string& text : texts) json_array_append_new(list.get(), jsonOf(text).release());
  return list;
}

JsonPtr jsonOf(State state) { return jsonOf(guest::shimStates[static_cast<size_t>(state)]); }

// {"NAME": value}, as a line.
std::string lineOf(const char* name, JsonPtr value) {
  const JsonPtr root(json_object());
  json_object_set_new(root.get(), name, value.release());
  const std::unique_ptr<char, void (*)(void*)> text(json_dumps(root.get(), JSON_COMPACT),
                                                    std::free);
  return std::string(text ? text.get() : "{}") + "\n";
}

std::string stringOf(const json_t* value) {
  return json_is_string(value) ? std::string(json_string_value(value), json_string_length(value))
                               : std::string();
}

// The one member of a request that says what is asked for.
const char* verbOf(const json_t* root) {
  for (const char* const verb : word::requests)
    if (json_is_object(json_object_get(root, verb))) return verb;
  throw RequestError(
      "the request is not understood: it must be {\"status\":{}}, {\"stop\":{\"timeout\":SECONDS}} "
      "or {\"adopt\":{...}}");
}

std::optional<Duration> timeoutOf(const json_t* stop) {
  const json_t* const value = json_object_get(stop, word::timeout);
  if (!value) return std::nullopt;
  const double seconds = json_number_value(value);
  if (!json_is_number(value) || seconds < 0 || seconds > guest::longestStopTimeout)
    throw RequestError("stop: the timeout is refused: it must be 0 to 86400 (seconds)");
  return Duration(static_cast<Duration::rep>(seconds * 1000));
}

pid_t processOf(const json_t* adopt, const char* name) {
  const json_t* const value = json_object_get(adopt, name);
  if (!json_is_integer(value) || json_integer_value(value) < 1 ||
      json_integer_value(value) > INT32_MAX)
    throw RequestError("adopt: '" + std::string(name) + "' is missing: it must be a process id");
  return static_cast<pid_t>(json_integer_value(value));
}

Adoption adoptionOf(const json_t* adopt) {
  Adoption adoption;
  adoption.pid = processOf(adopt, word::pid);
  adoption.daemon = processOf(adopt, word::daemon);
  const json_t* const words = json_object_get(adopt, word::arguments);
  if (!json_is_array(words))
    throw RequestError("adopt: 'arguments' is missing: it must be a list of texts");
  adoption.arguments.reserve(json_array_size(words));
  for (size_t i = 0; i < json_array_size(words); ++i)
    adoption.arguments.push_back(stringOf(json_array_get(words, i)));
  return adoption;
}

// It is shown among a process's variables.
bool isStoreName(std::string_view text) {
  constexpr std::string_view others = "-_.";
  return !text.empty() && text.size() <= longestStoreName &&
         std::all_of(text.begin(), text.end(), [&](char c) {
           return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                  others.find(c) != std::string_view::npos;
         });
}

Row rowOf(const json_t* value) {
  Row row{stringOf(json_object_get(value, word::store)), 0};
  if (!isStoreName(row.store))
    throw RequestError(
        "row: 'store' is refused: it must be 1 to 64 letters, digits, '-', '_' or '.'");
  const json_int_t sequence = json_integer_value(json_object_get(value, word::sequence));
  if (sequence < 1) throw RequestError("row: 'sequence' is refused: it must be 1 or more");
  row.sequence = static_cast<uint64_t>(sequence);
  return row;
}

Line toldLine(const json_t* value) {
  const json_t* const up = json_object_get(value, word::up);
  Line line{stringOf(json_object_get(value, word::card)), json_is_true(up)};
  if (line.card.empty())
    throw RequestError("line: 'card' is missing: it must be the card's MAC address");
  if (!json_is_boolean(up)) throw RequestError("line: 'up' is missing: it must be true or false");
  return line;
}

std::vector<std::string> keysOf(const json_t* value) {
  const json_t* const names = json_object_get(value, word::keys);
  const size_t count = json_array_size(names);
  if (count < 1 || count > mostKeys)
    throw RequestError("key: 'keys' is refused: it must be a list of 1 to 8 names of keys");
  std::vector<std::string> keys;
  for (size_t i = 0; i < count; ++i) {
    keys.push_back(stringOf(json_array_get(names, i)));
    if (!mayBeKey(keys.back()))
      throw RequestError(
          "key: a name is refused: it must be one of QEMU's, such as ctrl or delete");
  }
  return keys;
}

constexpr std::array wishes{Wish::Kind::pause,     Wish::Kind::resume, Wish::Kind::reset,
                            Wish::Kind::interrupt, Wish::Kind::keys,   Wish::Kind::picture};

Wish wishOf(std::string_view verb, const json_t* value) {
  Wish wish;
  wish.kind = *std::find_if(wishes.begin(), wishes.end() - 1,
                            [&](Wish::Kind kind) { return wordOf(kind) == verb; });
  if (wish.kind == Wish::Kind::keys) wish.keys = keysOf(value);
  return wish;
}

std::optional<State> stateFrom(const std::string& text) {
  for (size_t i = 0; i < guest::shimStates.size(); ++i)
    if (guest::shimStates[i] == text) return static_cast<State>(i);
  return std::nullopt;
}

std::optional<Greeting> greetingOf(const json_t* root) {
  Greeting greeting;
  greeting.protocol = static_cast<int>(json_integer_value(json_object_get(root, word::shim)));
  greeting.vm = stringOf(json_object_get(root, word::vm));
  greeting.pid = static_cast<pid_t>(json_integer_value(json_object_get(root, word::pid)));
  greeting.qemu = static_cast<pid_t>(json_integer_value(json_object_get(root, word::qemu)));
  const auto state = stateFrom(stringOf(json_object_get(root, word::state)));
  // A state of another protocol is nothing to go by.
  if (!state && greeting.protocol == guest::shimProtocol) return std::nullopt;
  greeting.state = state.value_or(State::running);
  return greeting;
}

std::optional<int> waitStatusOf(const json_t* end) {
  const json_t* const exit = json_object_get(end, word::exit);
  const json_t* const signal = json_object_get(end, word::signal);
  const json_int_t status = json_integer_value(exit);
  const json_int_t number = json_integer_value(signal);
  if (json_is_integer(exit) && status >= 0 && status <= UINT8_MAX) return W_EXITCODE(status, 0);
  if (number > 0 && number < NSIG) return W_EXITCODE(0, number);
  return std::nullopt;
}

}  // namespace

Request requestFrom(std::string_view text) {
  json_error_t error;
  const JsonPtr root(json_loadb(text.data(), text.size(), JSON_REJECT_DUPLICATES, &error));
  if (!json_is_object(root.get()))
    throw RequestError("the request is no JSON object on a line of its own");
  const std::string_view verb = verbOf(root.get());
  const json_t* const body = json_object_get(root.get(), verb.data());
  Request request;
  if (verb == word::stop) {
    request.kind = Request::Kind::stop;
    request.timeout = timeoutOf(body);
  } else if (verb == word::adopt) {
    request.kind = Request::Kind::adopt;
    request.adoption = adoptionOf(body);
  } else if (verb == word::row) {
    request.kind = Request::Kind::row;
    request.row = rowOf(body);
  } else if (verb == word::line) {
    request.kind = Request::Kind::line;
    request.line = toldLine(body);
  } else if (verb != word::status) {
    request.kind = Request::Kind::wish;
    request.wish = wishOf(verb, body);
  }
  request.by = stringOf(json_object_get(body, word::by));
  return request;
}

std::string greetingLine(const Greeting& greeting) {
  JsonPtr root(json_object());
  json_object_set_new(root.get(), word::vm, jsonOf(greeting.vm).release());
  json_object_set_new(root.get(), word::pid, json_integer(greeting.pid));
  json_object_set_new(root.get(), word::qemu, json_integer(greeting.qemu));
  json_object_set_new(root.get(), word::state, jsonOf(greeting.state).release());
  // First, for who reads it with the eye.
  const std::unique_ptr<char, void (*)(void*)> text(json_dumps(root.get(), JSON_COMPACT),
                                                    std::free);
  return "{\"" + std::string(word::shim) + "\":" + std::to_string(greeting.protocol) + "," +
         std::string(text.get()).substr(1) + "\n";
}

std::string statusLine(const Status& status) {
  JsonPtr value(json_object());
  json_object_set_new(value.get(), word::state, jsonOf(status.state).release());
  json_object_set_new(value.get(), word::qemu, json_integer(status.qemu));
  json_object_set_new(value.get(), word::agent, json_boolean(status.hasAgent));
  json_object_set_new(value.get(), word::console, jsonOf(status.console).release());
  json_object_set_new(value.get(), word::problems, jsonOf(status.problems).release());
  return lineOf(word::done, std::move(value));
}

std::string doneLine() { return lineOf(word::done, JsonPtr(json_object())); }

std::string errorLine(std::string_view text) { return lineOf(word::error, jsonOf(text)); }

std::string endLine(int waitStatus) {
  JsonPtr value(json_object());
  if (WIFSIGNALED(waitStatus))
    json_object_set_new(value.get(), word::signal, json_integer(WTERMSIG(waitStatus)));
  else
    json_object_set_new(value.get(), word::exit, json_integer(WEXITSTATUS(waitStatus)));
  return lineOf(word::end, std::move(value));
}

std::string adoptLine(const Adoption& adoption) {
  JsonPtr value(json_object());
  json_object_set_new(value.get(), word::pid, json_integer(adoption.pid));
  json_object_set_new(value.get(), word::daemon, json_integer(adoption.daemon));
  json_object_set_new(value.get(), word::arguments, jsonOf(adoption.arguments).release());
  return lineOf(word::adopt, std::move(value));
}

std::string stopLine(Duration timeout) {
  return guest::stopRequest(std::to_string(timeout.count() / 1000));
}

std::optional<Saying> sayingFrom(std::string_view text) {
  const JsonPtr root(json_loadb(text.data(), text.size(), JSON_REJECT_DUPLICATES, nullptr));
  Saying saying;
  if (json_object_get(root.get(), word::shim)) {
    saying.kind = Saying::Kind::greeting;
    const auto greeting = greetingOf(root.get());
    if (!greeting) return std::nullopt;
    saying.greeting = *greeting;
  } else if (const json_t* const end = json_object_get(root.get(), word::end)) {
    saying.kind = Saying::Kind::end;
    const auto status = waitStatusOf(end);
    if (!status) return std::nullopt;
    saying.waitStatus = *status;
  } else if (const json_t* const error = json_object_get(root.get(), word::error)) {
    saying.kind = Saying::Kind::error;
    saying.error = stringOf(error);
  } else if (!json_object_get(root.get(), word::done)) {
    return std::nullopt;
  }
  return saying;
}

}  // namespace shim::control
