// What a row's document says.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace sim {

// The member's value as JSON has it, without the quotes of a text; empty: there is none, or the
// document is none.
std::string memberOf(const std::string& document, const char* member);
// Whether both say the same, the member left out.
bool areEqualBut(const std::string& one, const std::string& other, const char* member);

struct CardRow {
  std::string key;
  std::string mac;
  std::string device;
};
// Of a VM's row.
std::vector<CardRow> cardsOf(const std::string& document);

}  // namespace sim
