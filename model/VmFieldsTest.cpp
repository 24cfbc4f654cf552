// The table of a VM's fields against the records that they stand in.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "model/Tables.h"
#include "model/VmFields.h"
#include "model/VmImage.h"
#include "model/VmOwn.h"

namespace model {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Eq;
using testing::Optional;

constexpr MachineLimits smallMachine{1024};

// The names of what can be set of a record, collections apart.
std::vector<std::string> scalarsOf(const rt::Entity& record) {
  std::vector<std::string> names;
  for (const rt::AttributeInfo& attribute : record.type().attributes)
    if (attribute.textIs) names.emplace_back(attribute.name);
  return names;
}

// The records that fields stand in, by whether they are a card's, and by table.
class VmFields : public testing::Test {
 protected:
  VmFields() { card = vm->vnicConfigIs("nic00"); }

  rt::Entity& recordOf(const VmField& field) {
    if (field.isOfCard) return *card;
    if (field.table == table::vmConfig) return *vm;
    if (isOwn(field.table)) return own.record(field.table);
    EXPECT_EQ(field.table, table::vmImage) << field.name;
    return *image;
  }
  std::optional<rt::String> right(const VmField& field, std::string_view value) {
    return field.right ? field.right(value, smallMachine) : std::nullopt;
  }

  const Vm::VmConfig::Ptr vm = rt::make<Vm::VmConfig>("web1");
  const VmImage::Ptr image = rt::make<VmImage>("web1");
  const VmOwn own{"web1"};
  Vm::VnicConfig::Ptr card;
};

TEST_F(VmFields, AreAllThatCanBeSetOfAVm) {
  for (const std::string& name : scalarsOf(*vm)) EXPECT_TRUE(vmFieldNamed(name)) << name;
  EXPECT_EQ(vmFieldNamed("vnicConfig"), nullptr);
}

TEST_F(VmFields, AreAllThatCanBeSetOfACard) {
  for (const std::string& name : scalarsOf(*card)) EXPECT_TRUE(cardFieldNamed(name)) << name;
}

TEST_F(VmFields, AreAttributesOfTheRecordThatTheyStandIn) {
  for (const VmField& field : vmFields())
    EXPECT_THAT(scalarsOf(recordOf(field)), Contains(Eq(field.name))) << field.name;
}

TEST_F(VmFields, StandInTablesOfVmsThatOperatorsWrite) {
  for (const VmField& field : vmFields()) {
    EXPECT_TRUE(isOfVms(field.table)) << field.name;
    EXPECT_FALSE(isStatus(field.table)) << field.name;
  }
}

TEST_F(VmFields, HaveNamesAndOptionsOfTheirOwn) {
  std::set<std::pair<bool, std::string_view>> names;
  std::set<std::pair<bool, std::string_view>> options;
  for (const VmField& field : vmFields()) {
    EXPECT_TRUE(names.insert({field.isOfCard, field.name}).second) << field.name;
    if (field.option.empty()) continue;
    EXPECT_TRUE(options.insert({field.isOfCard, field.option}).second) << field.name;
    EXPECT_EQ(field.optionHelp.empty(), field.isOfCard) << field.name;
    EXPECT_EQ(field.optionValue.empty(), field.isOfCard) << field.name;
  }
}

TEST_F(VmFields, HaveWordsForHelpAndForWhatIsNoValueOfTheirs) {
  for (const VmField& field : vmFields()) {
    EXPECT_FALSE(field.help.empty()) << field.name;
    const bool takesAnyText =
        field.kind == VmField::Kind::text || field.kind == VmField::Kind::path;
    EXPECT_EQ(field.form.empty(), takesAnyText) << field.name;
    EXPECT_EQ(valueIs(recordOf(field), field, "?"), takesAnyText) << field.name;
  }
}

TEST_F(VmFields, TakeWhatTheySayThereIsToChooseAmong) {
  size_t count = 0;
  for (const VmField& field : vmFields()) {
    if (!field.values) continue;
    for (const std::string_view value : field.values()) {
      ASSERT_TRUE(valueIs(recordOf(field), field, value)) << field.name;
      EXPECT_EQ(valueOf(recordOf(field), field), value);
      EXPECT_EQ(right(field, value), std::nullopt) << field.name << " " << value;
      ++count;
    }
  }
  EXPECT_GE(count, 4U);
}

TEST_F(VmFields, OfMemoryAreKeptInMebibytes) {
  const VmField& memory = *vmFieldNamed("memory");
  ASSERT_TRUE(valueIs(*vm, memory, "0.5G"));
  EXPECT_EQ(vm->memory(), 512U);
  EXPECT_EQ(valueOf(*vm, memory), "512");
  EXPECT_FALSE(valueIs(*vm, memory, "1.5K"));
  EXPECT_EQ(vm->memory(), 512U);
}

TEST_F(VmFields, SayWhatWouldBeRight) {
  EXPECT_THAT(right(*vmFieldNamed("memory"), "2048"),
              Optional(Eq("must be 1 to 1024 (mebibytes; this machine has no more)")));
  EXPECT_THAT(right(*vmFieldNamed("vncPort"), "80"),
              Optional(Eq("must be 5900 to 5910, or 0 for no display")));
  EXPECT_THAT(right(*vmFieldNamed("format"), "vmdk"), Optional(Eq("must be raw or qcow2")));
  EXPECT_TRUE(right(*vmFieldNamed("diskImage"), "images/a.img"));
  EXPECT_TRUE(right(*vmFieldNamed("cpuWeight"), "0"));
  EXPECT_FALSE(right(*vmFieldNamed("cpuWeight"), "10000"));
  EXPECT_TRUE(right(*vmFieldNamed("ioWeight"), "10001"));
  EXPECT_TRUE(right(*vmFieldNamed("cpuMax"), "0.04"));
  EXPECT_TRUE(right(*vmFieldNamed("rateLimit"), "10001"));
  EXPECT_FALSE(right(*vmFieldNamed("rateLimit"), "0"));
  EXPECT_FALSE(right(*vmFieldNamed("cpuMax"), "0"));
  EXPECT_TRUE(right(*vmFieldNamed("memoryReserve"), "1025"));
  EXPECT_FALSE(right(*vmFieldNamed("memoryReserve"), "1024"));
  EXPECT_TRUE(right(*cardFieldNamed("model"), "e100"));
  EXPECT_TRUE(right(*cardFieldNamed("macAddr"), "01:00:00:00:00:01"));
  EXPECT_TRUE(right(*cardFieldNamed("intfName"), ""));
}

TEST_F(VmFields, TakeEffectAtTheNextStartButForTheSwitchTheHostsOwnAndACardsInterface) {
  std::vector<std::string_view> atOnce;
  for (const VmField& field : vmFields())
    if (field.takesEffectAtOnce) atOnce.push_back(field.name);
  EXPECT_THAT(atOnce,
              ElementsAre("enabled", "cpuWeight", "cpuMax", "memoryReserve", "ioWeight",
                          "rateLimit", "restart", "startOrder", "startDelay", "link", "intfName"));
}

}  // namespace
}  // namespace model
