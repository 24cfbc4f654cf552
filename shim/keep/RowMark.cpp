#include "shim/keep/RowMark.h"

#include <unistd.h>

#include <cstring>

#include "guest/Variables.h"

namespace shim {

RowMark::RowMark() : store_(placeOf(guest::variable::store)), row_(placeOf(guest::variable::row)) {}

RowMark::Place RowMark::placeOf(const char* name) {
  const size_t length = std::strlen(name);
  for (char** variable = environ; *variable; ++variable)
    if (std::strncmp(*variable, name, length) == 0 && (*variable)[length] == '=')
      return {*variable + length + 1, std::strlen(*variable + length + 1)};
  return {};
}

// What is left over becomes empty.
void RowMark::write(const Place& place, const std::string& text, size_t from) {
  for (size_t i = from; i < place.size; ++i) place.begin[i] = i < text.size() ? text[i] : '\0';
}

bool RowMark::rowIs(const control::Row& row) const {
  const std::string sequence = std::to_string(row.sequence);
  if (row.store.size() > store_.size || sequence.size() > row_.size) return false;
  row_.begin[0] = '\0';
  write(store_, row.store, 0);
  write(row_, sequence, 1);
  row_.begin[0] = sequence[0];
  return true;
}

}  // namespace shim
