// Entities to documents, and back to what they were.
#include <gmock/gmock.h>

#include "runtime/entity/TestEntities.h"
#include "runtime/records/Bridging.h"
#include "runtime/records/Interface.h"
#include "runtime/records/KernelNetInfo.h"
#include "runtime/records/VmConfig.h"
#include "runtime/records/VmStatus.h"
#include "statedb/EntityDocument.h"

namespace statedb {

enum class Mood : uint8_t { calm, wild };
constexpr rt::EnumNames<2> enumNames(Mood) { return {"calm", "wild"}; }

// Has numbers of several kinds, and an enumeration.
class Gauge final : public rt::EntityOf<Gauge> {
 public:
  int64_t level() const { return level_; }
  void levelIs(int64_t level) { assign<&Gauge::level>(level_, level); }
  rt::Seconds delay() const { return delay_; }
  void delayIs(rt::Seconds delay) { assign<&Gauge::delay>(delay_, delay); }
  Mood mood() const { return mood_; }
  void moodIs(Mood mood) { assign<&Gauge::mood>(mood_, mood); }

  static constexpr std::string_view typeName = "Test::Gauge";
  using Attributes = rt::AttributeTable<rt::Attribute<"level", &Gauge::level, &Gauge::levelIs>,
                                        rt::Attribute<"delay", &Gauge::delay, &Gauge::delayIs>,
                                        rt::Attribute<"mood", &Gauge::mood, &Gauge::moodIs>>;

 private:
  int64_t level_ = 5;
  rt::Seconds delay_;
  Mood mood_ = Mood::calm;
};

namespace {

const rt::EthAddr mac("52:54:00:12:34:56");

Vm::VmConfig::Ptr aVm() {
  auto vm = rt::make<Vm::VmConfig>("web1");
  vm->enabledIs(true);
  vm->diskImageIs("/images/web.iso");
  vm->memoryIs(256);
  vm->vncPortIs(5901);
  const auto card = vm->vnicConfigIs("nic00");
  card->modelIs("e1000");
  card->macAddrIs(mac);
  card->intfNameIs("Vlan100");
  return vm;
}

// Whether a fresh entity filled with `entity`'s document has the same document, which is returned.
rt::String roundTrip(const rt::Entity& entity) {
  rt::String document = documentOf(entity);
  const auto other = entity.type().fresh(entity);
  EXPECT_TRUE(fill(*other, document).empty()) << document;
  EXPECT_EQ(documentOf(*other), document);
  return document;
}

// What a document has as fields.

TEST(EntityDocument, OfAVmHasItsSettingsAndNotItsName) {
  EXPECT_EQ(documentOf(*aVm()),
            R"({"enabled":true,"diskImage":"/images/web.iso","memory":256,"vncPort":5901,)"
            R"("vnicConfig":{"nic00":{"model":"e1000","macAddr":"52:54:00:12:34:56",)"
            R"("intfName":"Vlan100"}}})");
}

TEST(EntityDocument, OfANewVmHasAllFieldsWithTheirDefaults) {
  EXPECT_EQ(documentOf(*rt::make<Vm::VmConfig>("web1")),
            R"({"enabled":false,"diskImage":"","memory":0,"vncPort":0,"vnicConfig":{}})");
}

TEST(EntityDocument, OfAStatusHasWhatTheAgentReports) {
  const auto status = rt::make<Vm::VmStatus>("web1");
  status->stateIs("Running");
  status->consolePtyPathIs("/dev/pts/7");
  EXPECT_EQ(
      documentOf(*status),
      R"({"enabled":false,"state":"Running","consolePtyPath":"/dev/pts/7","cmdStatusStr":""})");
}

TEST(EntityDocument, HasPlainValuesAsTextByKey) {
  const auto vlan = rt::make<Bridging::Input::FdbConfig>(Bridging::VlanId(100));
  vlan->configuredHostIs({mac, rt::IntfId("Cpu"), 4, 0x100000, false});
  EXPECT_EQ(documentOf(*vlan),
            R"({"configuredHost":{"52:54:00:12:34:56":"52:54:00:12:34:56 Cpu 4 1048576 false"}})");
}

TEST(EntityDocument, LeavesReferencesOut) {
  const auto house = rt::make<rt::test::House>();
  house->doorLampIs("porch");
  EXPECT_EQ(documentOf(*house), R"({"lamp":{},"reading":{}})");
}

TEST(EntityDocument, LeavesOutCollectionsThatCanOnlyBeRead) {
  EXPECT_EQ(documentOf(*rt::make<rt::test::Office>()), "{}");
}

TEST(EntityDocument, EscapesWhatJsonCannotHoldAsItIs) {
  const auto status = rt::make<Vm::VmStatus>("web1");
  status->cmdStatusStrIs(rt::String("a\"b\\c\n\x1f\0\x7f/\u00e9\U0001F600", 16));
  EXPECT_THAT(documentOf(*status).str(),
              testing::HasSubstr("\"a\\\"b\\\\c\\u000a\\u001f\\u0000\x7f/\u00e9\U0001F600\""));
}

TEST(EntityDocument, WritesBytesThatAreNoUtf8AsTheReplacementCharacter) {
  for (const char* bad : {"\xff", "\x80", "\xc3", "\xc0\xaf", "\xe0\x80\x80", "\xed\xa0\x80",
                          "\xf0\x80\x80\x80", "\xf4\x90\x80\x80", "\xf5\x80\x80\x80", "\xe2\x82"}) {
    const auto status = rt::make<Vm::VmStatus>("web1");
    status->stateIs(rt::String("<") + bad + ">");
    const rt::String document = documentOf(*status);
    EXPECT_THAT(document.str(), testing::HasSubstr("<\xef\xbf\xbd"));
    EXPECT_THAT(fill(*status, document), testing::IsEmpty()) << document;
  }
}

// Back again.

TEST(EntityDocumentRoundTrip, IsExactForAVm) { roundTrip(*aVm()); }

TEST(EntityDocumentRoundTrip, IsExactForTheLargestNumbersAndOddTexts) {
  const auto vm = aVm();
  vm->memoryIs(4294967295);
  vm->diskImageIs(rt::String("\0\x01\"\\/\u20ac\xef\xbf\xbf", 11));
  vm->vnicConfigIs("");
  vm->vnicConfigIs("a.b c\"\n");
  roundTrip(*vm);
  const auto other = rt::make<Vm::VmConfig>("web1");
  fill(*other, documentOf(*vm));
  EXPECT_EQ(other->memory(), 4294967295U);
  EXPECT_EQ(other->diskImage(), vm->diskImage());
  EXPECT_TRUE(other->vnicConfigHas("a.b c\"\n"));
}

TEST(EntityDocumentRoundTrip, IsExactForAWholeConfiguration) {
  const auto config = rt::make<Vm::Config>();
  config->vmConfigMount(aVm());
  config->vmConfigIs("web2");
  EXPECT_THAT(roundTrip(*config).str(), testing::HasSubstr(R"("web2":{"enabled":false)"));
}

TEST(EntityDocumentRoundTrip, IsExactForStatuses) {
  const auto status = rt::make<Vm::Status>();
  status->vmStatusIs("web1")->cmdStatusStrIs("device_add failed: \"no such bus\"\n");
  roundTrip(*status);
}

TEST(EntityDocumentRoundTrip, IsExactForInterfaces) {
  const auto all = rt::make<Interface::AllIntfStatusDir>();
  all->intfStatusIs(rt::IntfId("Ethernet1/1"))->deviceNameIs("et1_1");
  EXPECT_EQ(roundTrip(*all), R"({"intfStatus":{"Ethernet1/1":{"deviceName":"et1_1"}}})");

  const auto local = rt::make<Interface::AllIntfStatusLocalDir>();
  local->intfStatusLocalIs(rt::IntfId("Vlan100"), {"br0.100", rt::NamespaceName("blue")});
  EXPECT_EQ(roundTrip(*local), R"({"intfStatusLocal":{"Vlan100":"br0.100 blue"}})");

  const auto device = rt::make<Interface::DeviceIntfStatusDir>();
  device->intfStatusAndDeviceNameIs(rt::IntfId("Vlan100"), {"br0.100", 7});
  EXPECT_EQ(roundTrip(*device), R"({"intfStatusAndDeviceName":{"Vlan100":"br0.100 7"}})");
}

TEST(EntityDocumentRoundTrip, IsExactForKernelDevices) {
  const auto status = rt::make<KernelNetInfo::Status>();
  status->interfaceIs({rt::NamespaceName("blue"), 7}, "et1");
  EXPECT_EQ(roundTrip(*status), R"({"interface":{"blue/7":"et1"}})");
}

TEST(EntityDocumentRoundTrip, IsExactForStaticHosts) {
  const auto config = rt::make<Bridging::Input::Config>();
  config->fdbConfigIs(Bridging::VlanId(4094))
      ->configuredHostIs({mac, rt::IntfId("Cpu"), 4, 0x100000, true});
  EXPECT_EQ(roundTrip(*config), R"({"fdbConfig":{"4094":{"configuredHost":{"52:54:00:12:34:56":)"
                                R"("52:54:00:12:34:56 Cpu 4 1048576 true"}}}})");
}

TEST(EntityDocumentRoundTrip, IsExactForFractionsSignsAndEnumerations) {
  const auto gauge = rt::make<Gauge>();
  gauge->levelIs(INT64_MIN);
  gauge->delayIs(rt::Seconds(0.1));
  gauge->moodIs(Mood::wild);
  EXPECT_EQ(roundTrip(*gauge), R"({"level":-9223372036854775808,"delay":0.1,"mood":"wild"})");
  gauge->levelIs(INT64_MAX);
  gauge->delayIs(rt::Seconds(-1e300));
  EXPECT_EQ(roundTrip(*gauge), R"({"level":9223372036854775807,"delay":-1e+300,"mood":"wild"})");
  const auto other = rt::make<Gauge>();
  fill(*other, documentOf(*gauge));
  EXPECT_EQ(other->delay(), gauge->delay());
}

TEST(EntityDocumentRoundTrip, AnInfiniteNumberIsValidJsonButIsNotReadBack) {
  const auto gauge = rt::make<Gauge>();
  gauge->delayIs(rt::Seconds::infinity());
  const rt::String document = documentOf(*gauge);
  EXPECT_EQ(document, R"({"level":5,"delay":"inf","mood":"calm"})");
  EXPECT_EQ(fill(*gauge, document).size(), 1U);
}

TEST(EntityDocumentRoundTrip, IsExactForANewOneOfEachTypeOfRecord) {
  const rt::Ptr<rt::Entity> records[] = {rt::make<Vm::Config>(),
                                         rt::make<Vm::VmConfig>("web1"),
                                         rt::make<Vm::VnicConfig>("nic00"),
                                         rt::make<Vm::Status>(),
                                         rt::make<Vm::VmStatus>("web1"),
                                         rt::make<Interface::IntfStatus>(rt::IntfId("Vlan1")),
                                         rt::make<Interface::IntfStatusPtrDir>(),
                                         rt::make<Interface::AllIntfStatusDir>(),
                                         rt::make<Interface::AllIntfStatusLocalDir>(),
                                         rt::make<Interface::DeviceIntfStatusDir>(),
                                         rt::make<KernelNetInfo::Status>(),
                                         rt::make<Bridging::Input::Config>(),
                                         rt::make<Bridging::Input::FdbConfig>(Bridging::VlanId(7))};
  for (const auto& record : records) {
    ASSERT_NE(record->type().fresh, nullptr) << record->type().name;
    EXPECT_EQ(&record->type().fresh(*record)->type(), &record->type());
    roundTrip(*record);
  }
}

TEST(EntityDocument, OfAnotherVersionIsReadAsFarAsItIsKnown) {
  const auto status = rt::make<Vm::VmStatus>("web1");
  status->cmdStatusStrIs("of before");
  fillKnown(*status, R"({"enabled":"maybe","state":"Running","mood":"good"})");
  EXPECT_EQ(status->state(), "Running");
  EXPECT_FALSE(status->enabled());
  EXPECT_EQ(status->cmdStatusStr(), "");
}

TEST(EntityDocument, ThatIsNoneIsARecordOfDefaults) {
  const auto status = rt::make<Vm::VmStatus>("web1");
  status->stateIs("Running");
  fillKnown(*status, "{");
  EXPECT_EQ(status->state(), "");
}

}  // namespace
}  // namespace statedb
