// What is wrong with a document, in words; and that nothing is changed then.
#include <gmock/gmock.h>

#include "runtime/entity/TestEntities.h"
#include "runtime/fakes/ChangeRecorder.h"
#include "runtime/records/Bridging.h"
#include "runtime/records/VmConfig.h"
#include "statedb/EntityDocument.h"

namespace statedb {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

std::vector<std::string> texts(const std::vector<rt::Problem>& problems) {
  std::vector<std::string> result;
  result.reserve(problems.size());
  for (const auto& problem : problems) result.push_back(problem.text().str());
  return result;
}

// A VM that is watched: whatever is refused must leave it as it is, and tell nothing.
class EntityDocumentRefusal : public testing::Test {
 protected:
  EntityDocumentRefusal() {
    vm_->enabledIs(true);
    vm_->memoryIs(64);
    vm_->vnicConfigIs("nic00")->modelIs("e1000");
    recorder_->watch(vm_);
    recorder_->watch(vm_->vnicConfig("nic00"));
  }

  std::vector<std::string> problemsOf(std::string_view json, const FillOptions& options = {}) {
    const rt::String before = documentOf(*vm_);
    auto problems = texts(fill(*vm_, json, options));
    EXPECT_EQ(documentOf(*vm_), before);
    EXPECT_THAT(recorder_->take(), IsEmpty());
    return problems;
  }

  const Vm::VmConfig::Ptr vm_ = rt::make<Vm::VmConfig>("web1");
  const rt::Ptr<rt::fakes::ChangeRecorder> recorder_ = rt::make<rt::fakes::ChangeRecorder>();
};

// Fields.

TEST_F(EntityDocumentRefusal, AnUnknownFieldIsNamedWithTheOneThatWasMeant) {
  EXPECT_THAT(
      problemsOf(R"({"memroy":256})"),
      ElementsAre("memroy: '256' is refused: there is no such field; did you mean 'memory'?"));
}

TEST_F(EntityDocumentRefusal, AnUnknownFieldThatIsNearToNoneIsToldWhichThereAre) {
  EXPECT_THAT(problemsOf(R"({"colour":"red"})"),
              ElementsAre("colour: 'red' is refused: there is no such field; there are enabled, "
                          "diskImage, memory, vncPort, vnicConfig"));
}

TEST_F(EntityDocumentRefusal, AFieldWithoutANameIsShownAsAPairOfQuotes) {
  EXPECT_THAT(problemsOf(R"({"":1})"),
              ElementsAre("\"\": '1' is refused: there is no such field; there are enabled, "
                          "diskImage, memory, vncPort, vnicConfig"));
}

TEST_F(EntityDocumentRefusal, AnUnknownFieldOfAMemberIsGivenWithItsPath) {
  EXPECT_THAT(problemsOf(R"({"vnicConfig":{"nic00":{"vlan":"x","modle":"x"}}})"),
              ElementsAre("vnicConfig.nic00.vlan: 'x' is refused: there is no such field; there "
                          "are model, macAddr, intfName",
                          "vnicConfig.nic00.modle: 'x' is refused: there is no such field; did "
                          "you mean 'model'?"));
}

TEST_F(EntityDocumentRefusal, WhatCannotBeSetMustBeLeftOut) {
  EXPECT_THAT(problemsOf(R"({"name":"web1","vnicConfig":{"nic00":{"key":"nic00"}}})"),
              ElementsAre("name: 'web1' is refused: must be left out: it cannot be set",
                          "vnicConfig.nic00.key: 'nic00' is refused: must be left out: it cannot "
                          "be set"));
}

// Values.

struct Case {
  const char* json;
  const char* problem;
};
class EntityDocumentValue : public EntityDocumentRefusal,
                            public testing::WithParamInterface<Case> {};

TEST_P(EntityDocumentValue, OfTheWrongFormIsRefusedWithWhatWouldBeRight) {
  EXPECT_THAT(problemsOf(GetParam().json), ElementsAre(GetParam().problem));
}

constexpr Case cases[] = {
    {R"({"memory":"abc"})",
     "memory: 'abc' is refused: must be a whole number from 0 to 4294967295, without quotes"},
    {R"({"memory":"256"})",
     "memory: '256' is refused: must be a whole number from 0 to 4294967295, without quotes"},
    {R"({"memory":-1})", "memory: '-1' is refused: must be a whole number from 0 to 4294967295"},
    {R"({"memory":4294967296})",
     "memory: '4294967296' is refused: must be a whole number from 0 to 4294967295"},
    {R"({"memory":9007199254740993})",
     "memory: '9007199254740993' is refused: must be a whole number from 0 to 4294967295"},
    {R"({"memory":1.5})", "memory: '1.5' is refused: must be a whole number from 0 to 4294967295"},
    {R"({"memory":1.0})", "memory: '1.0' is refused: must be a whole number from 0 to 4294967295"},
    {R"({"memory":1e2})",
     "memory: '100.0' is refused: must be a whole number from 0 to 4294967295"},
    {R"({"memory":null})",
     "memory: 'null' is refused: must be a whole number from 0 to 4294967295"},
    {R"({"memory":true})",
     "memory: 'true' is refused: must be a whole number from 0 to 4294967295"},
    {R"({"memory":[1]})",
     "memory: '[...]' is refused: must be a whole number from 0 to 4294967295"},
    {R"({"enabled":1})", "enabled: '1' is refused: must be true or false"},
    {R"({"enabled":"true"})", "enabled: 'true' is refused: must be true or false, without quotes"},
    {R"({"enabled":null})", "enabled: 'null' is refused: must be true or false"},
    {R"({"diskImage":5})", "diskImage: '5' is refused: must be text, in quotes"},
    {R"({"diskImage":false})", "diskImage: 'false' is refused: must be text, in quotes"},
    {R"({"diskImage":{"a":1}})", "diskImage: '{...}' is refused: must be text, in quotes"},
    {R"({"diskImage":{}})", "diskImage: '{}' is refused: must be text, in quotes"},
    {R"({"diskImage":[]})", "diskImage: '[]' is refused: must be text, in quotes"},
    {R"({"vnicConfig":[]})",
     "vnicConfig: '[]' is refused: must be an object of members by key: {\"KEY\": ...}"},
    {R"({"vnicConfig":null})",
     "vnicConfig: 'null' is refused: must be an object of members by key: {\"KEY\": ...}"},
    {R"({"vnicConfig":{"nic00":"e1000"}})",
     "vnicConfig.nic00: 'e1000' is refused: must be an object of fields: {\"FIELD\": ...}"},
    {R"({"vnicConfig":{"nic01":{"macAddr":"52:54"}}})",
     "vnicConfig.nic01.macAddr: '52:54' is refused: must be a MAC address, such as "
     "52:54:00:12:34:56"},
    {R"({"vnicConfig":{"nic00":{"macAddr":""}}})",
     "vnicConfig.nic00.macAddr: '' is refused: must be a MAC address, such as 52:54:00:12:34:56"},
};
INSTANTIATE_TEST_SUITE_P(All, EntityDocumentValue, testing::ValuesIn(cases));

TEST_F(EntityDocumentRefusal, AllProblemsAreToldAtOnceInTheOrderOfTheDocument) {
  EXPECT_THAT(problemsOf(R"({"vncPort":-5,"vnicConfig":{"nic01":{"macAddr":"x","model":1}},
                             "disk":"/a","enabled":null})"),
              ElementsAre(StartsWith("vncPort: '-5'"), StartsWith("vnicConfig.nic01.macAddr: 'x'"),
                          StartsWith("vnicConfig.nic01.model: '1'"), StartsWith("disk: '/a'"),
                          StartsWith("enabled: 'null'")));
}

// Keys.

TEST_F(EntityDocumentRefusal, AKeyThatIsNoneIsRefused) {
  const auto config = rt::make<Bridging::Input::Config>();
  EXPECT_THAT(
      texts(fill(*config, R"({"fdbConfig":{"4095":{},"1":{"configuredHost":{"x":"y"}}}})")),
      ElementsAre("fdbConfig: '4095' is refused: each key must be a VLAN number from 1 to 4094",
                  "fdbConfig.1.configuredHost: 'x' is refused: each key must be a MAC address, "
                  "such as 52:54:00:12:34:56"));
  EXPECT_TRUE(config->fdbConfigs().empty());
}

TEST_F(EntityDocumentRefusal, TwoKeysThatMeanTheSameAreRefused) {
  const auto config = rt::make<Bridging::Input::Config>();
  EXPECT_THAT(texts(fill(*config, R"({"fdbConfig":{"100":{},"0100":{}}})")),
              ElementsAre("fdbConfig: '{...}' is refused: each member must be there once: two of "
                          "the keys mean the same"));
}

TEST_F(EntityDocumentRefusal, APlainValueOfTheWrongFormIsRefused) {
  const auto vlan = rt::make<Bridging::Input::FdbConfig>(Bridging::VlanId(1));
  EXPECT_THAT(texts(fill(*vlan, R"({"configuredHost":{"525400123456":"","52:54:00:12:34:56":"x",
                                    "52:54:00:12:34:57":4}})")),
              ElementsAre(HasSubstr("each key must be a MAC address"),
                          "configuredHost.52:54:00:12:34:56: 'x' is refused: must be a value of "
                          "type Bridging::ConfiguredHost",
                          "configuredHost.52:54:00:12:34:57: '4' is refused: must be a value of "
                          "type Bridging::ConfiguredHost, in quotes"));
}

TEST_F(EntityDocumentRefusal, WhatAMutatorRefusesIsToldInItsOwnWords) {
  const auto vlan = rt::make<Bridging::Input::FdbConfig>(Bridging::VlanId(1));
  EXPECT_THAT(
      texts(fill(*vlan,
                 R"({"configuredHost":{"52:54:00:12:34:56":"52:54:00:12:34:57 a 4 0 true"}})")),
      ElementsAre(AllOf(StartsWith("configuredHost.52:54:00:12:34:56: '52:54:00:12:34:57 a"),
                        EndsWith("the host's address must be its key"))));
  EXPECT_TRUE(vlan->configuredHosts().empty());
}

// Documents that are none.

TEST_F(EntityDocumentRefusal, WhatIsNoObjectIsRefused) {
  EXPECT_THAT(problemsOf("[1]"),
              ElementsAre("document: '[...]' is refused: must be a JSON object"));
  EXPECT_THAT(problemsOf("null"),
              ElementsAre("document: 'null' is refused: must be a JSON object"));
  EXPECT_THAT(problemsOf("5"), ElementsAre("document: '5' is refused: must be a JSON object"));
}

TEST_F(EntityDocumentRefusal, MalformedJsonIsToldWithItsPlace) {
  EXPECT_THAT(
      problemsOf("{\"enabled\": true,\n \"memory\" 256}"),
      ElementsAre("document: '{\"enabled\": true,\\x0a \"memory\" 256' is refused: must be a "
                  "JSON object, but at line 2, column 13: ':' expected near '256'"));
  for (const char* bad :
       {"", " ", "{", "{\"memory\":}", "{\"memory\":1,}", "{} {}", "{'a':1}", "{\"memory\":01}",
        "{\"memory\":NaN}", "{\"memory\":+1}", "\xff", "{\"diskImage\":\"\xc3\"}",
        "{\"diskImage\":\"\\ud800\"}", "\xef\xbb\xbf{}"})
    EXPECT_THAT(problemsOf(bad), ElementsAre(AllOf(StartsWith("document: '"), HasSubstr("line "),
                                                   HasSubstr("column "))))
        << bad;
}

TEST_F(EntityDocumentRefusal, OfALongMalformedDocumentTheLast32BytesBeforeItsPlaceAreShown) {
  const std::string json = R"({"diskImage": "/images/of/some/length.img", "memory" 256, "x": 1})";
  const std::string shown = json.substr(json.find("256") + 3 - 32, 32);
  EXPECT_THAT(problemsOf(json),
              ElementsAre(StartsWith("document: '" + shown + "' is refused: must be")));
}

TEST_F(EntityDocumentRefusal, NoBytesAtAllAreMalformed) {
  EXPECT_THAT(problemsOf(std::string_view()), ElementsAre(StartsWith("document: ''")));
}

TEST_F(EntityDocumentRefusal, ANulByteOutsideOfTextIsMalformed) {
  EXPECT_THAT(problemsOf(std::string_view("{}\0", 3)), ElementsAre(StartsWith("document: ")));
  EXPECT_THAT(problemsOf(R"({"vnicConfig":{"a\u0000b":{}}})"),
              ElementsAre(HasSubstr("NUL byte in object key")));
}

TEST_F(EntityDocumentRefusal, TheSameFieldTwiceIsToldWithItsPlace) {
  EXPECT_THAT(problemsOf(R"({"memory":1,"memory":2})"),
              ElementsAre(AllOf(HasSubstr("line 1, column 20: duplicate object key"),
                                HasSubstr("memory"))));
}

TEST_F(EntityDocumentRefusal, ANumberOfMoreThan64BitsIsToldWithItsPlace) {
  EXPECT_THAT(problemsOf(R"({"memory":9223372036854775808})"),
              ElementsAre(HasSubstr("column 29: too big integer")));
  EXPECT_THAT(problemsOf(R"({"memory":-9223372036854775809})"),
              ElementsAre(HasSubstr("too big negative integer")));
  EXPECT_THAT(problemsOf(R"({"memory":1e999})"), ElementsAre(HasSubstr("real number overflow")));
}

TEST_F(EntityDocumentRefusal, DeepNestingIsRefused) {
  EXPECT_THAT(problemsOf(R"({"memory":)" + std::string(1000, '[') + std::string(1000, ']') + "}"),
              ElementsAre(StartsWith("memory: '[...]'")));
  EXPECT_THAT(problemsOf(std::string(1000000, '[')),
              ElementsAre(HasSubstr("maximum parsing depth reached")));
}

// Further rules.

TEST_F(EntityDocumentRefusal, FurtherRulesSeeTheWholeDocumentAndRefuseIt) {
  FillOptions options;
  options.check = [](const rt::Entity& whole) {
    EXPECT_EQ(documentOf(whole),
              R"({"enabled":false,"diskImage":"","memory":5,"vncPort":0,"vnicConfig":{}})");
    EXPECT_EQ(attributeText(whole, "name"), "web1");
    return std::vector<rt::Problem>{{"memory", "5", "must be even"}};
  };
  EXPECT_THAT(problemsOf(R"({"memory":5})", options),
              ElementsAre("memory: '5' is refused: must be even"));
}

TEST_F(EntityDocumentRefusal, FurtherRulesAddWhatIsWrongWithOtherFields) {
  FillOptions options;
  options.check = [](const rt::Entity&) {
    return std::vector<rt::Problem>{{"memory", "0", "must be 1"},
                                    {"vncPort", "7", "must be 0"},
                                    {"vncPort", "7", "must be even"}};
  };
  EXPECT_THAT(problemsOf(R"({"memory":"x","vncPort":7})", options),
              ElementsAre(StartsWith("memory: 'x'"), "vncPort: '7' is refused: must be 0",
                          "vncPort: '7' is refused: must be even"));
}

TEST_F(EntityDocumentRefusal, FurtherRulesAreNotAskedAboutWhatIsNoDocument) {
  FillOptions options;
  options.check = [](const rt::Entity&) {
    ADD_FAILURE();
    return std::vector<rt::Problem>();
  };
  EXPECT_THAT(problemsOf("[]", options), ElementsAre(StartsWith("document")));
  EXPECT_THAT(problemsOf("{", options), ElementsAre(StartsWith("document")));
}

TEST_F(EntityDocumentRefusal, OnlyRecordsAreReadFromDocuments) {
  const auto watcher =
      rt::make<rt::test::HouseWatcher>(rt::make<rt::test::House>(), [](const rt::String&) {});
  EXPECT_DEATH(fill(*watcher, "{}"), "assertion failed: a document is read into a record\n");
}

}  // namespace
}  // namespace statedb
