// Entities as JSON documents, by generic attribute access alone.
//
// A document is an object with a field for each attribute that can be set: truth values and numbers
// as such, all else as text, a collection as an object of its members by key:
//
//   {"enabled":true,"memory":256,"vnicConfig":{"nic00":{"model":"e1000"}}}
//
// What has no mutator is no field: a record's own key, which the store keeps beside the document,
// and references to other entities.
#pragma once

#include <functional>
#include <string_view>
#include <vector>

#include "runtime/base/Problem.h"
#include "runtime/entity/Entity.h"

namespace statedb {

// A text as JSON has it. Bytes that are no UTF-8 become U+FFFD, for JSON cannot hold them.
rt::String quoted(std::string_view text);

// Compact, on one line, its fields in the order of the type's attributes. Bytes that are no UTF-8
// become U+FFFD, for JSON cannot hold them.
rt::String documentOf(const rt::Entity& entity);

struct FillOptions {
  // A truth value that says whether the rest is in use, such as "enabled": where a type has it, it
  // is written after the other fields when it becomes true and before them when it becomes false.
  std::string_view switchAttribute{};
  // Further rules, over a record that has the document's values and that nobody watches. What it
  // finds refuses the document too; what it says of a field that could not be read is left out.
  std::function<std::vector<rt::Problem>(const rt::Entity&)> check{};
  // Gives a fresh record what its fields have when the document leaves them out, where the defaults
  // of its type will not do.
  std::function<void(rt::Entity&)> defaults{};
};

// Makes `entity`, which is a record (its type has `fresh`), what the document says, or returns all
// that is wrong with the document and changes nothing.
//
// A document is whole: a field that is missing gets its default, a member that is missing is
// removed. Members that are gone are removed before others are written; a new one is filled before
// it is told of; what stays equal is not told. Exceptions of handlers pass through; what was
// written by then stays.
//
// Numbers are exact, and at most 2^63 - 1.
std::vector<rt::Problem> fill(rt::Entity& entity, std::string_view json,
                              const FillOptions& options = {});

// Makes `entity` what the document says as far as it can be read: what cannot has its default, and
// what is no field is passed over. For rows of a program that may be of another version.
void fillKnown(rt::Entity& entity, std::string_view json);

// Makes `to` equal `from`, which is of its type: as fill() does from a document.
void copy(const rt::Entity& from, rt::Entity& to, std::string_view switchAttribute = {});

}  // namespace statedb
