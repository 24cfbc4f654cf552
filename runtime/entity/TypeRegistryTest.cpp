#include <gmock/gmock.h>

#include "runtime/entity/TestEntities.h"
#include "runtime/entity/TypeRegistry.h"

namespace rt::test {

// Has the name of another type and as many attributes.
class OtherLamp final : public EntityOf<OtherLamp> {
 public:
  bool a() const { return false; }
  bool b() const { return false; }
  bool c() const { return false; }

  static constexpr std::string_view typeName = "Test::Lamp";
  using Attributes = AttributeTable<Attribute<"a", &OtherLamp::a>, Attribute<"b", &OtherLamp::b>,
                                    Attribute<"c", &OtherLamp::c>>;
};

// Has the name of another type and fewer attributes.
class PoorLamp final : public EntityOf<PoorLamp> {
 public:
  bool lit() const { return false; }

  static constexpr std::string_view typeName = "Test::Lamp";
  using Attributes = AttributeTable<Attribute<"lit", &PoorLamp::lit>>;
};

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

TEST(TypeRegistry, GivesATypeByItsName) {
  TypeRegistry registry;
  registry.typeIs(typeInfo<Lamp>);
  ASSERT_NE(registry.type("Test::Lamp"), nullptr);
  EXPECT_EQ(registry.type("Test::Lamp")->name, "Test::Lamp");
  EXPECT_EQ(registry.type("Test::Lamp")->attributes.size(), 3U);
}

TEST(TypeRegistry, GivesNullForAnUnknownName) {
  TypeRegistry registry;
  registry.typeIs(typeInfo<Lamp>);
  EXPECT_EQ(registry.type("Test::House"), nullptr);
  EXPECT_EQ(registry.type(""), nullptr);
  EXPECT_EQ(registry.type("Test::Lam"), nullptr);
}

TEST(TypeRegistry, TakesTheSameTypeTwice) {
  TypeRegistry registry;
  registry.typeIs(typeInfo<Lamp>);
  registry.typeIs(typeInfo<Lamp>);
  EXPECT_EQ(registry.type("Test::Lamp"), &typeInfo<Lamp>);
}

TEST(TypeRegistry, TakesAnotherCopyOfTheSameTable) {
  TypeRegistry registry;
  registry.typeIs(typeInfo<Lamp>);
  const std::vector<AttributeInfo> copied(typeInfo<Lamp>.attributes.begin(),
                                          typeInfo<Lamp>.attributes.end());
  const TypeInfo copy{typeInfo<Lamp>.name, copied};
  registry.typeIs(copy);
  EXPECT_EQ(registry.type("Test::Lamp"), &typeInfo<Lamp>);
}

TEST(TypeRegistry, RefusesAnotherTypeOfTheSameNameAndKeepsTheFirst) {
  TypeRegistry registry;
  registry.typeIs(typeInfo<Lamp>);
  const auto text = thrownBy<Exception>([&] { registry.typeIs(typeInfo<PoorLamp>); });
  EXPECT_EQ(text, "two different entity types are named Test::Lamp");
  EXPECT_EQ(registry.type("Test::Lamp"), &typeInfo<Lamp>);
}

TEST(TypeRegistry, RefusesAnotherTypeOfTheSameNameAndAsManyAttributes) {
  TypeRegistry registry;
  registry.typeIs(typeInfo<Lamp>);
  EXPECT_THAT(thrownBy<Exception>([&] { registry.typeIs(typeInfo<OtherLamp>); }),
              HasSubstr("Test::Lamp"));
  EXPECT_EQ(registry.type("Test::Lamp"), &typeInfo<Lamp>);
}

TEST(TypeRegistry, HasTheRecordsOfTheProcessAtItsStart) {
  const TypeInfo* const type = typeRegistry().type("Vm::VmConfig");
  ASSERT_NE(type, nullptr);
  std::vector<std::string_view> names;
  for (const auto& attribute : type->attributes) names.push_back(attribute.name);
  EXPECT_THAT(names,
              ElementsAre("name", "enabled", "diskImage", "memory", "vncPort", "vnicConfig"));
  for (const char* name : {"Vm::Config", "Vm::VnicConfig", "Vm::VmStatus"})
    EXPECT_NE(typeRegistry().type(name), nullptr) << name;
}

TEST(TypeRegistry, HasWhatARegisteringObjectNames) {
  const RegisteredTypes<House> registered;
  EXPECT_EQ(typeRegistry().type("Test::House"), &typeInfo<House>);
}

}  // namespace
}  // namespace rt::test
