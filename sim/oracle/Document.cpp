#include "sim/oracle/Document.h"

#include <jansson.h>

#include <cstdlib>
#include <memory>

namespace sim {

namespace {

using JsonPtr = std::unique_ptr<json_t, void (*)(json_t*)>;

JsonPtr parsed(const std::string& text) {
  return {json_loadb(text.data(), text.size(), JSON_DECODE_ANY, nullptr), json_decref};
}

std::string textOf(const json_t* value) {
  if (!value) return {};
  if (json_is_string(value)) return json_string_value(value);
  const std::unique_ptr<char, void (*)(void*)> text(
      json_dumps(value, JSON_ENCODE_ANY | JSON_COMPACT | JSON_SORT_KEYS), std::free);
  return text ? text.get() : "";
}

}  // namespace

std::string memberOf(const std::string& document, const char* member) {
  const JsonPtr object = parsed(document);
  return textOf(json_object_get(object.get(), member));
}

bool areEqualBut(const std::string& one, const std::string& other, const char* member) {
  const JsonPtr a = parsed(one);
  const JsonPtr b = parsed(other);
  if (!json_is_object(a.get()) || !json_is_object(b.get())) return one == other;
  json_object_del(a.get(), member);
  json_object_del(b.get(), member);
  return json_equal(a.get(), b.get()) == 1;
}

std::vector<CardRow> cardsOf(const std::string& document) {
  std::vector<CardRow> cards;
  const JsonPtr object = parsed(document);
  const char* key = nullptr;
  json_t* card = nullptr;
  json_object_foreach(json_object_get(object.get(), "vnicConfig"), key, card) cards.push_back(
      {key, textOf(json_object_get(card, "macAddr")), textOf(json_object_get(card, "intfName"))});
  return cards;
}

}  // namespace sim
