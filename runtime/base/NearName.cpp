#include "runtime/base/NearName.h"

#include <algorithm>
#include <vector>

namespace rt {

namespace {

constexpr size_t longestName = 64;   // what is longer is no slip of the fingers
constexpr size_t fewestLetters = 3;  // of what is taken for a name's beginning

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
bool same(char a, char b) { return lower(a) == lower(b); }

// How many letters have to be added, removed, replaced or swapped to make `b` of `a`.
size_t distance(std::string_view a, std::string_view b) {
  std::vector<size_t> older(b.size() + 1);
  std::vector<size_t> old(b.size() + 1);
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    older.swap(old);
    old.swap(row);
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t replaced = old[j - 1] + (same(a[i - 1], b[j - 1]) ? 0 : 1);
      row[j] = std::min({replaced, old[j] + 1, row[j - 1] + 1});
      if (i > 1 && j > 1 && same(a[i - 1], b[j - 2]) && same(a[i - 2], b[j - 1]))
        row[j] = std::min(row[j], older[j - 2] + 1);
    }
  }
  return row[b.size()];
}

bool begins(std::string_view text, std::string_view name) {
  return text.size() >= fewestLetters && text.size() <= name.size() &&
         std::equal(text.begin(), text.end(), name.begin(), same);
}

}  // namespace

std::optional<std::string_view> nearName(std::string_view text,
                                         std::span<const std::string_view> names) {
  if (text.empty() || text.size() > longestName) return std::nullopt;
  std::optional<std::string_view> nearest;
  size_t limit = std::max<size_t>(1, text.size() / 3) + 1;
  for (const std::string_view name : names) {
    const size_t away = distance(text, name);
    if (away >= limit || away == std::max(text.size(), name.size())) continue;
    nearest = name;
    limit = away;
  }
  for (const std::string_view name : names)
    if (!nearest && begins(text, name)) nearest = name;
  return nearest;
}

String didYouMean(std::string_view text, std::span<const std::string_view> names) {
  const auto name = nearName(text, names);
  return name ? "; did you mean '" + String(*name) + "'?" : String();
}

}  // namespace rt
