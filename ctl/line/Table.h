// Text in aligned columns.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "runtime/base/String.h"

namespace ctl {

enum class Ink : uint8_t { plain, good, busy, bad };

struct Cell {
  Cell(rt::String words, Ink colour = Ink::plain) : text(std::move(words)), ink(colour) {}
  Cell(const char* words) : text(words) {}

  rt::String text;  // of any bytes; an empty one is shown as "-"
  Ink ink = Ink::plain;
};

struct TableStyle {
  size_t columns = 0;  // of the terminal: a cell is cut there, with "..."; 0: no terminal
  bool colours = false;
};

class Table {
 public:
  explicit Table(std::vector<Cell> headers) : flexible_(headers.size() - 1) {
    row(std::move(headers));
  }
  // `flexible`: the column whose cells are cut where there is no room, instead of the last.
  Table(std::vector<Cell> headers, size_t flexible) : Table(std::move(headers)) {
    flexible_ = flexible;
  }

  // As many cells as there are headers.
  void row(std::vector<Cell> cells) { rows_.push_back(std::move(cells)); }
  rt::String text(const TableStyle& style) const;
  // The text of the rows until now, which are forgotten; later ones will be aligned with them as
  // far as they fit.
  rt::String takeText(const TableStyle& style);

 private:
  std::vector<size_t> widths() const;
  size_t roomForFlexible(const std::vector<size_t>& widths, const TableStyle& style) const;

  std::vector<std::vector<Cell>> rows_;
  std::vector<size_t> takenWidths_;
  size_t flexible_;
};

// In colour, where the style has colours.
rt::String inked(const rt::String& text, Ink ink, const TableStyle& style);
// As rt::visibleText().
rt::String visible(std::string_view text);
// How many characters the UTF-8 text has.
size_t width(std::string_view text);
// At most `columns` characters of it, with "..." for the rest: at its end, or in its middle.
rt::String cut(const rt::String& text, size_t columns);
rt::String cutInside(const rt::String& text, size_t columns);

}  // namespace ctl
