#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runtime/entity/TypeRegistry.h"

namespace {

using testing::ElementsAre;

class RecordType : public testing::TestWithParam<const char*> {};

TEST_P(RecordType, IsRegisteredUnderItsName) {
  const rt::TypeInfo* const type = rt::typeRegistry().type(GetParam());
  ASSERT_NE(type, nullptr);
  EXPECT_EQ(type->name, GetParam());
  EXPECT_FALSE(type->attributes.empty());
}

INSTANTIATE_TEST_SUITE_P(
    RecordTypesTest, RecordType,
    testing::Values("Vm::Config", "Vm::VmConfig", "Vm::VnicConfig", "Vm::Status", "Vm::VmStatus",
                    "Interface::IntfStatus", "Interface::IntfStatusPtrDir",
                    "Interface::AllIntfStatusDir", "Interface::AllIntfStatusLocalDir",
                    "Interface::DeviceIntfStatusDir", "Interface::NetNsIntfStatusManager",
                    "Interface::NetNsIntfStatusManagerRoot", "KernelNetInfo::Status",
                    "Bridging::Input::Config", "Bridging::Input::FdbConfig"));

// What the state database has as a record's fields.
std::vector<std::string_view> attributesOf(std::string_view type) {
  std::vector<std::string_view> names;
  for (const auto& attribute : rt::typeRegistry().type(type)->attributes)
    names.push_back(attribute.name);
  return names;
}

TEST(RecordTypesTest, TheRecordsOfAVmHaveTheseAttributes) {
  EXPECT_THAT(attributesOf("Vm::VmConfig"),
              ElementsAre("name", "enabled", "diskImage", "memory", "vncPort", "vnicConfig"));
  EXPECT_THAT(attributesOf("Vm::VnicConfig"), ElementsAre("key", "model", "macAddr", "intfName"));
  EXPECT_THAT(attributesOf("Vm::VmStatus"),
              ElementsAre("name", "enabled", "state", "consolePtyPath", "cmdStatusStr"));
}

}  // namespace
