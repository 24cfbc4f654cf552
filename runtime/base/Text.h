// Values as text, in both directions: for traces, the state database and generic access.
//
// A value type takes part by having `String text() const`, `static std::optional<T>
// fromText(std::string_view)` and `static constexpr std::string_view typeName`. An enumeration does
// by a function beside it that its values find:
//
//   enum class Colour : uint8_t { red, green };
//   constexpr EnumNames<2> enumNames(Colour) { return {"red", "green"}; }
#pragma once

#include <array>
#include <charconv>
#include <cmath>
#include <concepts>
#include <cstdint>
#include <optional>
#include <string_view>
#include <type_traits>

#include "runtime/base/Format.h"
#include "runtime/base/Seconds.h"
#include "runtime/base/String.h"

namespace rt {

// The names of an enumeration's values, which count from 0 without gaps.
template <size_t count>
using EnumNames = std::array<std::string_view, count>;

template <class E>
concept NamedEnum = std::is_enum_v<E> && sizeof(E) == 1 && requires(E e) {
  enumNames(e)[0];
};

template <class T>
concept TextValue = requires(const T& value, std::string_view text) {
  { value.text() } -> std::same_as<String>;
  { T::fromText(text) } -> std::same_as<std::optional<T>>;
  { T::typeName } -> std::convertible_to<std::string_view>;
};

// What a value looks like to a store that tells truth values, numbers and text apart.
enum class ValueForm : uint8_t { boolean, number, text };

template <class T>
constexpr ValueForm valueForm() {
  if constexpr (std::same_as<T, bool>) return ValueForm::boolean;
  if constexpr (std::integral<T> || std::same_as<T, Seconds>) return ValueForm::number;
  return ValueForm::text;
}

template <class T>
constexpr std::string_view valueTypeName() {
  if constexpr (std::same_as<T, bool>) return "bool";
  if constexpr (std::same_as<T, String>) return "String";
  if constexpr (std::same_as<T, Seconds>) return "Seconds";
  if constexpr (std::is_enum_v<T>) return "enumeration";
  if constexpr (std::integral<T> && !std::same_as<T, bool>) {
    constexpr std::string_view names[2][4] = {{"int8", "int16", "int32", "int64"},
                                              {"uint8", "uint16", "uint32", "uint64"}};
    constexpr int width = sizeof(T) == 1 ? 0 : sizeof(T) == 2 ? 1 : sizeof(T) == 4 ? 2 : 3;
    return names[std::is_unsigned_v<T>][width];
  }
  if constexpr (TextValue<T>) return T::typeName;
  return {};
}

// A value that is none of the enumeration's is given as its number.
template <NamedEnum E>
String toText(E value) {
  constexpr auto names = enumNames(E());
  const auto index = static_cast<size_t>(value);
  return index < names.size() ? String(names[index]) : format("%zu", index);
}
template <std::same_as<bool> T>  // a template, so that no pointer is taken for a truth value
String toText(T value) {
  return value ? "true" : "false";
}
inline String toText(const String& value) { return value; }
template <std::integral T>
requires(!std::same_as<T, bool>) String toText(T value) {
  char digits[24];
  const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  return {digits, static_cast<size_t>(end - digits)};
}
inline String toText(Seconds value) {
  char digits[32];
  const auto end = std::to_chars(digits, digits + sizeof digits, value.value()).ptr;
  return {digits, static_cast<size_t>(end - digits)};
}
template <TextValue T>
String toText(const T& value) {
  return value.text();
}

// The whole of `text` as a number of type T, or nothing.
template <class T>
std::optional<T> numberFromText(std::string_view text) {
  T value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

// The value that `text` stands for, or nothing when it is no value of T.
template <class T>
std::optional<T> fromText(std::string_view text) {
  if constexpr (std::same_as<T, bool>) {
    if (text == "true") return true;
    if (text == "false") return false;
    return std::nullopt;
  } else if constexpr (std::same_as<T, String>) {
    return String(text);
  } else if constexpr (std::same_as<T, Seconds>) {
    const auto number = numberFromText<double>(text);
    return number && std::isfinite(*number) ? std::optional(Seconds(*number)) : std::nullopt;
  } else if constexpr (std::integral<T>) {
    return numberFromText<T>(text);
  } else if constexpr (NamedEnum<T>) {
    constexpr auto names = enumNames(T());
    for (size_t i = 0; i < names.size(); ++i)
      if (names[i] == text) return static_cast<T>(i);
    return std::nullopt;
  } else {
    return T::fromText(text);
  }
}

}  // namespace rt
