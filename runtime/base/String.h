// The runtime's string: a byte string that always ends in a NUL its length does not count.
#pragma once

#include <compare>
#include <concepts>
#include <cstddef>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>

namespace rt {

class String {
 public:
  String() = default;
  String(const char* text) : text_(text) {}
  String(const char* bytes, size_t length) : text_(bytes, length) {}
  String(std::string text) noexcept : text_(std::move(text)) {}
  String(std::string_view text) : text_(text) {}

  const char* charPtr() const { return text_.c_str(); }
  size_t size() const { return text_.size(); }
  bool empty() const { return text_.empty(); }
  // The byte at `index`, which is below size().
  char operator[](size_t index) const { return text_[index]; }
  // At most `length` bytes from `start` on; empty when `start` is at or past the end.
  String substr(size_t start, size_t length = std::string::npos) const {
    return start < size() ? String(text_.substr(start, length)) : String();
  }

  operator std::string_view() const { return text_; }
  const std::string& str() const { return text_; }

  String& operator+=(std::string_view more) {
    text_ += more;
    return *this;
  }
  String& operator+=(char more) {
    text_ += more;
    return *this;
  }
  friend String operator+(String left, const String& right) {
    left += right;
    return left;
  }

  friend bool operator==(const String&, const String&) = default;
  friend std::strong_ordering operator<=>(const String&, const String&) = default;
  template <class Text>
  requires(std::convertible_to<const Text&, std::string_view> &&
           !std::same_as<Text, String>) friend bool
  operator==(const String& left, const Text& right) {
    return left.text_ == std::string_view(right);
  }

  friend std::ostream& operator<<(std::ostream& out, const String& text) {
    return out << text.text_;
  }

 private:
  std::string text_;
};

}  // namespace rt

template <>
struct std::hash<rt::String> {
  size_t operator()(const rt::String& text) const noexcept {
    return std::hash<std::string_view>()(text);
  }
};
