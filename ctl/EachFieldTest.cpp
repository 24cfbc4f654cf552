// Each field of a VM reaches all that vmctl says of fields: none is forgotten when one is added.
#include "ctl/fakes/VmctlFixture.h"
#include "model/Tables.h"
#include "model/VmFields.h"
#include "model/VmImage.h"
#include "model/VmOwn.h"
#include "statedb/EntityDocument.h"

namespace ctl {
namespace {

using fakes::Answer;
using model::VmField;
using testing::HasSubstr;

std::string pathOf(const VmField& field, const std::string& key) {
  return (field.isOfCard ? "vnicConfig." + key + "." : "") + std::string(field.name);
}

// A value of its own for each.
std::string sampleOf(const VmField& field) {
  const auto number = std::to_string(&field - model::vmFields().data());
  switch (field.kind) {
    case VmField::Kind::truth:
      return "true";
    case VmField::Kind::number:
    case VmField::Kind::mebibytes:
      return "420" + number;
    case VmField::Kind::processors:
      return number + ".42";
    case VmField::Kind::text:
      return "text" + number;
    case VmField::Kind::path:
      return "/path" + number;
    case VmField::Kind::macAddr:
      break;
  }
  return "52:54:00:00:42:" + std::string(number.size() == 1 ? "0" : "") + number;
}

class EachField : public fakes::VmctlFixture {
 protected:
  EachField() {
    const auto vm = rt::make<Vm::VmConfig>("web1");
    const auto card = vm->vnicConfigIs("nic00");
    const auto image = rt::make<model::VmImage>("web1");
    const model::VmOwn own("web1");
    for (const VmField& field : model::vmFields()) {
      rt::Entity* record = &*vm;
      if (field.isOfCard) record = &*card;
      if (field.table == model::table::vmImage) record = &*image;
      if (model::isOwn(field.table)) record = &own.record(field.table);
      EXPECT_TRUE(model::valueIs(*record, field, sampleOf(field))) << field.name;
    }
    image->diskImageIs(vm->diskImage());
    put(model::table::vmConfig, "web1", statedb::documentOf(*vm));
    put(model::table::vmImage, "web1", statedb::documentOf(*image));
    for (const auto& each : model::ownTables)
      put(std::string(each.table), "web1", statedb::documentOf(own.record(each.table)));
  }
};

TEST_F(EachField, IsInTheHelpOfSet) {
  const Answer help = vmctl("set --help");
  for (const VmField& field : model::vmFields())
    EXPECT_THAT(help.out, HasSubstr("\n  " + pathOf(field, "KEY") + " ")) << field.name;
}

TEST_F(EachField, WithAnOptionIsInTheHelpOfAdd) {
  const Answer help = vmctl("add --help");
  for (const VmField& field : model::vmFields()) {
    if (field.isOfCard || field.option.empty()) continue;
    EXPECT_THAT(help.out, HasSubstr("\n  --" + std::string(field.option) + " ")) << field.name;
  }
}

TEST_F(EachField, IsWhatSetGoesOnWith) {
  const std::vector<rt::String> typed{"__complete", "--", "set", "web1", ""};
  const Answer all = vmctl(typed);
  for (const VmField& field : model::vmFields())
    EXPECT_THAT("\n" + all.out, HasSubstr("\n" + pathOf(field, "nic00") + "=")) << field.name;
}

TEST_F(EachField, IsNamedToWhoNamesAnother) {
  const Answer answer = vmctl("set web1 colour=red");
  const Answer ofCard = vmctl("set web1 vnicConfig.nic00.colour=red");
  for (const VmField& field : model::vmFields())
    EXPECT_THAT(field.isOfCard ? ofCard.err : answer.err, HasSubstr(std::string(field.name)));
}

TEST_F(EachField, IsShownWithItsValue) {
  const Answer shown = vmctl("show web1");
  for (const VmField& field : model::vmFields()) {
    // The switch is shown as "yes".
    if (field.name == "enabled") continue;
    EXPECT_THAT(shown.out, HasSubstr(sampleOf(field))) << field.name;
  }
}

TEST_F(EachField, IsAmongTheFieldsThatAreShown) {
  const Answer shown = vmctl("fields");
  const Answer json = vmctl("fields -o json");
  for (const VmField& field : model::vmFields()) {
    const std::string path = pathOf(field, "KEY");
    const std::string when = field.takesEffectAtOnce ? "at once" : "at the next start";
    EXPECT_THAT("\n" + shown.out, testing::ContainsRegex("\n" + path + " +" + when + " "));
    EXPECT_THAT(json.out, HasSubstr("\"field\": \"" + path + "\""));
  }
}

TEST_F(EachField, OfTheShownOnesSaysWhatIsUsualAndWhatThereIsToChoose) {
  const std::string json = vmctl("fields -o json").out;
  EXPECT_THAT(json, testing::ContainsRegex("\"field\": \"memory\",[^}]*\"usual\": \"256\""));
  EXPECT_THAT(json, testing::ContainsRegex("\"field\": \"cpuWeight\",[^}]*\"usual\": \"100\""));
  EXPECT_THAT(json,
              testing::ContainsRegex("\"field\": \"format\",[^}]*\"values\": [^}]*\"qcow2\""));
  EXPECT_THAT(json, testing::ContainsRegex("\"field\": \"diskImage\",[^}]*\"values\": null"));
}

TEST_F(EachField, IsInTheSchemaOfDocuments) {
  const Answer schema = vmctl("schema");
  for (const VmField& field : model::vmFields())
    EXPECT_THAT(schema.out, HasSubstr("\"" + std::string(field.name) + "\": {")) << field.name;
  EXPECT_THAT(schema.out, testing::ContainsRegex("\"memory\": [{][^}]*\"default\": 256,"));
  EXPECT_THAT(schema.out, testing::ContainsRegex("\"restart\": [{][^}]*\"on-failure\""));
}

TEST_F(EachField, IsInTheDocumentOfAVm) {
  const Answer shown = vmctl("show web1 -o json");
  for (const VmField& field : model::vmFields())
    EXPECT_THAT(shown.out, HasSubstr("\"" + std::string(field.name) + "\":")) << field.name;
}

}  // namespace
}  // namespace ctl
