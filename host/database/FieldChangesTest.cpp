#include <gtest/gtest.h>

#include "host/database/FieldChanges.h"
#include "runtime/records/VmConfig.h"
#include "statedb/EntityDocument.h"

namespace host {
namespace {

Vm::VmConfig::Ptr vm(const char* document) {
  auto made = rt::make<Vm::VmConfig>("web1");
  statedb::fillKnown(*made, document);
  return made;
}

TEST(FieldChanges, AreToldFromWhatToWhat) {
  EXPECT_EQ(changesText(*vm(R"({"memory":128,"diskImage":"/a.img"})"),
                        *vm(R"({"memory":140,"diskImage":"/a.img","enabled":true})")),
            "enabled false -> true, memory 128 -> 140");
  EXPECT_EQ(changesText(*vm("{}"), *vm(R"({"diskImage":"/a.img"})")), "diskImage none -> /a.img");
}

TEST(FieldChanges, AreThoseOfEachCard) {
  const auto before = vm(R"({"vnicConfig":{"nic00":{"intfName":"Ethernet1"},"nic01":{}}})");
  const auto after = vm(R"({"vnicConfig":{"nic00":{"intfName":"Ethernet2"},"nic02":{}}})");
  EXPECT_EQ(changesText(*before, *after),
            "vnicConfig.nic00.intfName Ethernet1 -> Ethernet2, vnicConfig.nic02 added, "
            "vnicConfig.nic01 removed");
}

TEST(FieldChanges, AreNoneOfTheSame) {
  const auto same = vm(R"({"memory":128,"vnicConfig":{"nic00":{}}})");
  EXPECT_EQ(changesText(*same, *same), "");
}

}  // namespace
}  // namespace host
