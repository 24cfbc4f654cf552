#include "sim/fiber/ProductImage.h"

// By product.ld.
extern "C" std::byte simProductBegin[];
extern "C" std::byte simProductEnd[];

namespace sim {

namespace {

const std::vector<Variable>& ofThread() {
  static const std::vector<Variable> variables =
      threadsVariables({"rt::", "Vm::", "netlink::", "statedb::", "guest::", "model::", "host::",
                        "shim::", "ctl::", "Interface::", "Bridging::", "KernelNetInfo::"});
  return variables;
}

// Sanitizers put their own beside the product's, four thousand times as much.
bool isCompilers(const Variable& variable) {
  return variable.name.starts_with("__") || variable.name.starts_with(".");
}

const std::vector<Variable>& common() {
  static const std::vector<Variable> variables = [] {
    std::vector<Variable> found = variablesBetween(simProductBegin, simProductEnd);
    std::erase_if(found, isCompilers);
    return found;
  }();
  return variables;
}

struct Piece {
  std::byte* begin;
  size_t size;
};

// Neighbours together; what a sanitizer lets nobody touch lies between those that are further
// apart.
std::vector<Piece> piecesOf(const std::vector<Variable>& variables) {
  constexpr std::ptrdiff_t widestGap = 15;
  std::vector<Piece> pieces;
  for (const Variable& each : variables) {
    std::byte* const end = each.address + each.size;
    if (pieces.empty() || each.address - (pieces.back().begin + pieces.back().size) > widestGap)
      pieces.push_back({each.address, each.size});
    else if (const Piece last = pieces.back(); end > last.begin + last.size)
      pieces.back().size = static_cast<size_t>(end - last.begin);
  }
  return pieces;
}

// A sanitizer lets nobody touch what it adds to a variable, so it is not to see this.
void copyBytes(std::byte* to, const std::byte* from, size_t size) {
  asm volatile("rep movsb" : "+D"(to), "+S"(from), "+c"(size) : : "memory");
}

const std::vector<Piece>& pieces() {
  static const std::vector<Piece> all = [] {
    std::vector<Piece> found = piecesOf(common());
    for (const Variable& each : ofThread()) found.push_back({each.address, each.size});
    return found;
  }();
  return all;
}

}  // namespace

const ProductImage& ProductImage::fresh() {
  static const ProductImage image = [] {
    ProductImage made;
    made.take();
    return made;
  }();
  return image;
}

void ProductImage::take() {
  bytes_.resize(size());
  std::byte* at = bytes_.data();
  for (const Piece& each : pieces()) {
    copyBytes(at, each.begin, each.size);
    at += each.size;
  }
}

void ProductImage::put() const {
  const std::byte* at = bytes_.data();
  for (const Piece& each : pieces()) {
    copyBytes(each.begin, at, each.size);
    at += each.size;
  }
}

const std::vector<Variable>& ProductImage::variables() {
  static const std::vector<Variable> all = [] {
    std::vector<Variable> found = common();
    found.insert(found.end(), ofThread().begin(), ofThread().end());
    return found;
  }();
  return all;
}

bool ProductImage::has(const void* address) {
  const auto* const at = static_cast<const std::byte*>(address);
  return at >= simProductBegin && at < simProductEnd;
}

size_t ProductImage::size() {
  static const size_t size = [] {
    size_t sum = 0;
    for (const Piece& each : pieces()) sum += each.size;
    return sum;
  }();
  return size;
}

}  // namespace sim
