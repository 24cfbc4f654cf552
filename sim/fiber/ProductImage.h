// The product's writable data, which each process of a world has of its own.
#pragma once

#include <cstddef>
#include <vector>

#include "sim/fiber/OwnSymbols.h"

namespace sim {

// A copy of it. The linker has put together what the product's objects have; what each thread has
// of its own is added.
class ProductImage {
 public:
  // As it was before the first process ran: what a program finds at its start. To be asked for the
  // first time before any runs.
  static const ProductImage& fresh();

  // Copies what is there now, and back.
  void take();
  void put() const;

  // The variables that it is made of.
  static const std::vector<Variable>& variables();
  static size_t size();
  // Whether it is one of them, or a part of one.
  static bool has(const void* address);

 private:
  std::vector<std::byte> bytes_;
};

}  // namespace sim
