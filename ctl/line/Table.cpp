#include "ctl/line/Table.h"

#include <algorithm>

#include "runtime/base/VisibleText.h"

namespace ctl {

namespace {

constexpr std::string_view gap = "  ";
constexpr std::string_view ellipsis = "...";
constexpr size_t leastRoom = 12;  // characters; less of a sentence says nothing
// In characters. A longer cell makes its own line longer, and no other.
constexpr size_t widestColumn = 64;

bool isContinuation(char c) { return (static_cast<unsigned char>(c) & 0xc0U) == 0x80U; }

std::string_view escapeOf(Ink ink) {
  switch (ink) {
    case Ink::good:
      return "\x1b[32m";
    case Ink::busy:
      return "\x1b[33m";
    case Ink::bad:
      return "\x1b[31m";
    case Ink::plain:
      break;
  }
  return {};
}

rt::String shown(const Cell& cell) { return cell.text.empty() ? "-" : visible(cell.text); }

// Where the character of that number begins, counted from 0.
size_t beginOf(const rt::String& text, size_t number) {
  size_t characters = 0;
  for (size_t at = 0; at < text.size(); ++at)
    if (!isContinuation(text[at]) && characters++ == number) return at;
  return text.size();
}

rt::String coloured(const Cell& cell, const rt::String& text, const TableStyle& style) {
  return cell.text.empty() ? text : inked(text, cell.ink, style);
}

}  // namespace

rt::String inked(const rt::String& text, Ink ink, const TableStyle& style) {
  const std::string_view escape = style.colours ? escapeOf(ink) : std::string_view();
  return escape.empty() ? text : escape + text + "\x1b[0m";
}

std::vector<size_t> Table::widths() const {
  std::vector<size_t> widths = takenWidths_;
  for (const auto& row : rows_) {
    widths.resize(row.size());
    for (size_t i = 0; i < row.size(); ++i)
      if (const size_t own = width(shown(row[i])); own <= widestColumn || i == flexible_)
        widths[i] = std::max(widths[i], own);
  }
  return widths;
}

// What is left of the terminal's width beside the other columns; where that is too little to be of
// use, lines wrap, and nothing needs to be cut.
size_t Table::roomForFlexible(const std::vector<size_t>& widths, const TableStyle& style) const {
  size_t used = 0;
  for (size_t i = 0; i < widths.size(); ++i)
    if (i != flexible_) used += widths[i] + gap.size();
  const bool isCut = style.columns != 0 && used + leastRoom <= style.columns;
  return isCut ? style.columns - used : std::string::npos;
}

rt::String Table::takeText(const TableStyle& style) {
  rt::String out = text(style);
  takenWidths_ = widths();
  rows_.clear();
  return out;
}

rt::String Table::text(const TableStyle& style) const {
  std::vector<size_t> widths = this->widths();
  const size_t room = roomForFlexible(widths, style);
  widths[flexible_] = std::min(widths[flexible_], room);
  rt::String out;
  for (const auto& row : rows_) {
    for (size_t i = 0; i < row.size(); ++i) {
      const rt::String text = i == flexible_ ? cut(shown(row[i]), room) : shown(row[i]);
      out += coloured(row[i], text, style);
      if (i + 1 == row.size()) break;
      const size_t missing = widths[i] - std::min(widths[i], width(text));
      (out += std::string(missing, ' ')) += gap;
    }
    out += '\n';
  }
  return out;
}

rt::String visible(std::string_view text) { return rt::visibleText(text); }

rt::String cut(const rt::String& text, size_t columns) {
  if (width(text) <= columns) return text;
  if (columns <= ellipsis.size()) return ellipsis.substr(0, columns);
  return text.substr(0, beginOf(text, columns - ellipsis.size())) + ellipsis;
}

rt::String cutInside(const rt::String& text, size_t columns) {
  if (width(text) <= columns || columns <= ellipsis.size()) return cut(text, columns);
  const size_t kept = columns - ellipsis.size();
  const size_t behind = kept / 2;
  return text.substr(0, beginOf(text, kept - behind)) + ellipsis +
         text.substr(beginOf(text, width(text) - behind));
}

size_t width(std::string_view text) {
  return static_cast<size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return !isContinuation(c); }));
}

}  // namespace ctl
