#include "guest/ShimProtocol.h"

namespace guest {

namespace {

std::string quoted(std::string_view text) { return "\"" + std::string(text) + "\""; }

// "NAME":VALUE, where the value is JSON.
std::string member(std::string_view name, const std::string& value) {
  return quoted(name) + ":" + value;
}

std::string request(std::string_view verb, const std::string& members) {
  return "{" + member(verb, "{" + members + "}") + "}\n";
}

}  // namespace

std::string stopRequest(std::string_view seconds, std::string_view by) {
  return request(word::stop, member(word::timeout, std::string(seconds)) +
                                 (by.empty() ? "" : "," + member(word::by, quoted(by))));
}

std::string rowRequest(std::string_view store, uint64_t sequence) {
  return request(word::row, member(word::store, quoted(store)) + "," +
                                member(word::sequence, std::to_string(sequence)));
}

std::string lineRequest(std::string_view card, bool isUp) {
  return request(word::line, member(word::card, quoted(card)) + "," +
                                 member(word::up, isUp ? "true" : "false"));
}

bool isStopping(std::string_view greeting) {
  constexpr auto stopping = static_cast<size_t>(ShimState::stopping);
  return greeting.find(member(word::state, quoted(shimStates[stopping]))) != std::string_view::npos;
}

}  // namespace guest
