#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "runtime/base/Trace.h"
#include "sim/fiber/ProductImage.h"

namespace sim {
namespace {

// Not what compilers add, nor what only builds with assertions have.
std::set<std::string> names() {
  std::set<std::string> all;
  for (const Variable& each : ProductImage::variables()) {
    const bool isOurs =
        each.name.find("::") != std::string::npos && !each.name.starts_with("std::");
    const bool isForAssertions = each.name.find("::notification") != std::string::npos;
    if (isOurs && !isForAssertions && !each.name.starts_with("guard variable for "))
      all.insert(each.name);
  }
  return all;
}

TEST(ProductImage, HasTheValuesThatWereThereWhenItWasTaken) {
  rt::vmTrace().levelsIs(7);
  ProductImage image;
  image.take();
  rt::vmTrace().levelsIs(0);
  image.put();
  EXPECT_EQ(rt::vmTrace().levels(), 7U);
  ProductImage::fresh().put();
}

// A variable that is new in the product is to be looked at: what it points to at the start of a
// program is all processes', so nobody may change that. A compiler may do without some.
TEST(ProductImage, IsMadeOfTheseVariables) {
  EXPECT_THAT(
      names(),
      testing::IsSubsetOf(std::set<std::string>{
          "Bridging::Input::(anonymous namespace)::registered",
          "Interface::(anonymous namespace)::registered",
          "KernelNetInfo::(anonymous namespace)::registered",
          "Vm::(anonymous namespace)::registered", "Vm::namespacePrefix",
          "ctl::(anonymous namespace)::options", "host::(anonymous namespace)::current",
          "host::(anonymous namespace)::ofChildren", "host::(anonymous namespace)::settings",
          "host::(anonymous namespace)::watchForks()::watched",
          "host::MonitorListener::MonitorListener(rt::String)::watched",
          "rt::(anonymous namespace)::current", "rt::(anonymous namespace)::currentSink",
          "rt::threadSafePtrsSwitch", "rt::typeRegistry()::registry", "rt::vmTraceHandle"}));
}

#ifndef NDEBUG
TEST(ProductImage, HasWhatEachThreadHasOfItsOwn) {
  std::set<std::string> all;
  for (const Variable& each : ProductImage::variables()) all.insert(each.name);
  EXPECT_TRUE(all.contains("rt::(anonymous namespace)::notificationDepth"));
}
#endif

TEST(ProductImage, IsSmall) {
  constexpr size_t most = 1024;  // with what a sanitizer adds to each variable
  EXPECT_LE(ProductImage::size(), most);
}

}  // namespace
}  // namespace sim
