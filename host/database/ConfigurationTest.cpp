// The configuration, handed to those who act on it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/database/Configuration.h"
#include "runtime/base/Exception.h"
#include "runtime/fakes/TraceRecorder.h"

namespace host {
namespace {

using statedb::Change;
using statedb::Cursor;
using statedb::Op;
using statedb::Proof;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class ConfigurationTest : public testing::Test, protected ConfigurationTaker {
 protected:
  static Change put(const char* table, const char* key, const char* doc,
                    Proof proof = Proof::history) {
    return {Op::put, {table, key, doc, 1, 1}, proof};
  }
  static Change found(const char* table, const char* key, const char* doc) {
    return put(table, key, doc, Proof::comparison);
  }
  static Change del(const char* table, const char* key) {
    return {Op::del, {table, key, {}, 0, 0}, Proof::history};
  }
  static Change lost(const char* table, const char* key) {
    return {Op::del, {table, key, {}, 0, 0}, Proof::comparison};
  }
  std::vector<std::string> take(const std::vector<Change>& changes, const Cursor& reached) {
    effects.clear();
    configuration.take(changes, reached, *this);
    return effects;
  }

  void interfaceIs(const rt::String& id, const std::optional<rt::String>& doc) override {
    effects.push_back("interface " + id.str() + " " + (doc ? doc->str() : "none"));
    if (interfaceFails) throw rt::Exception("no such interface");
  }
  void restartIs(const rt::String& vm, uint64_t number, bool ifEnded) override {
    effects.push_back("restart " + vm.str() + text(number) + (ifEnded ? " if ended" : ""));
  }
  void stopIs(const rt::String& vm, uint64_t number, int32_t within) override {
    if (number != 0 || within >= 0)
      effects.push_back("stop " + vm.str() + text(number) + " within " + std::to_string(within));
  }
  void restartIsPast(const rt::String& vm, uint64_t number) override {
    effects.push_back("past " + vm.str() + text(number));
  }
  void imageIs(const rt::String& vm, const std::optional<statedb::Record>& row) override {
    effects.push_back("image " + vm.str() + " " + (row ? row->doc.str() : "none"));
  }
  void imageIsLost(const rt::String& vm) override {
    effects.push_back("image " + vm.str() + " lost");
  }
  void ownRowIs(const rt::String& table, const rt::String& vm,
                const std::optional<statedb::Record>& row) override {
    effects.push_back(table.str() + " " + vm.str() + " " + (row ? row->doc.str() : "none"));
  }
  void rowIs(const rt::String& vm, const VmRow* row) override {
    effects.push_back("row " + vm.str() +
                      (!row          ? " none"
                       : row->isLost ? " lost"
                                     : text(row->origin.created)));
  }
  void givenUpIs(const rt::String& vm, const rt::String& guest) override {
    effects.push_back("given up " + vm.str() + " " + guest.str());
  }
  static std::string text(uint64_t number) { return " " + std::to_string(number); }

  rt::fakes::TraceRecorder traces;
  std::vector<std::string> effects;
  bool interfaceFails = false;
  Configuration configuration{model::MachineLimits{.memory = 8192}, Cursor{"s1", 100, "h1"}};
  const Cursor next{"s1", 101, "h1"};
};

TEST_F(ConfigurationTest, IsHandedOnAndWhoIsGivenUpIsToldWhenAllRowsAreKnown) {
  EXPECT_THAT(
      take({put("vmIntent", "web1", R"({"restart":3,"remove":"4711.88"})"),
            put("vmConfig", "web1", "{}"), put("interface", "Vlan1", "{}")},
           next),
      ElementsAre("restart web1 3", "interface Vlan1 {}", "row web1 1", "given up web1 4711.88"));
  EXPECT_TRUE(configuration.isGivenUp("web1", "4711.88"));
  EXPECT_FALSE(configuration.isGivenUp("web1", "4711.89"));
  EXPECT_FALSE(configuration.isGivenUp("web2", "4711.88"));
  EXPECT_EQ(configuration.reached(), next);
  EXPECT_EQ(configuration.rows().row("web1")->origin.history, "h1");
  EXPECT_THAT(
      take({del("vmIntent", "web1"), del("vmConfig", "web1"), del("interface", "Vlan1")}, next),
      ElementsAre("restart web1 0", "interface Vlan1 none", "row web1 none", "given up web1 "));
  EXPECT_FALSE(configuration.isGivenUp("web1", "4711.88"));
}

TEST_F(ConfigurationTest, SaysWhatADiskImageIsBeforeItsVmIsKnown) {
  EXPECT_THAT(take({put("vmConfig", "web1", "{}"), put("vmImage", "web1", "{}")}, next),
              ElementsAre("image web1 {}", "row web1 1"));
  EXPECT_THAT(take({del("vmImage", "web1")}, next), ElementsAre("image web1 none"));
  EXPECT_THAT(take({lost("vmImage", "web1")}, {"s2", 1, "h2"}), ElementsAre("image web1 lost"));
}

TEST_F(ConfigurationTest, SaysWhatAGuestMayTakeBeforeItsVmIsKnown) {
  EXPECT_THAT(take({put("vmConfig", "web1", "{}"), put("vmLimits", "web1", "{}")}, next),
              ElementsAre("vmLimits web1 {}", "row web1 1"));
  EXPECT_THAT(take({lost("vmLimits", "web1")}, {"s2", 1, "h2"}), IsEmpty());
  EXPECT_THAT(take({del("vmLimits", "web1")}, {"s2", 2, "h2"}), ElementsAre("vmLimits web1 none"));
}

TEST_F(ConfigurationTest, KeepsWhatIsLost) {
  take({put("vmIntent", "web1", R"({"restart":3,"remove":"4711.88"})"),
        put("vmConfig", "web1", "{}"), put("interface", "Vlan1", "{}")},
       next);
  EXPECT_THAT(take({lost("vmIntent", "web1"), lost("vmConfig", "web1"), lost("interface", "Vlan1")},
                   {"s2", 1, "h2"}),
              ElementsAre("row web1 lost", "given up web1 4711.88"));
  EXPECT_THAT(traces.take(1), testing::Contains(HasSubstr("interface Vlan1: its row is lost")));
}

TEST_F(ConfigurationTest, TakesTheNumbersOfAnotherForPast) {
  const std::vector<Change> all{found("vmIntent", "web1", R"({"restart":7})")};
  EXPECT_THAT(take(all, {"s2", 200, "h2"}), ElementsAre("past web1 7", "given up web1 "));
  // An older copy, which may have gone on by itself.
  EXPECT_THAT(take(all, {"s3", 199, "h2"}), ElementsAre("past web1 7", "given up web1 "));
  // Asked here.
  EXPECT_THAT(take({put("vmIntent", "web1", R"({"restart":8})")}, {"s3", 200, "h2"}),
              ElementsAre("restart web1 8", "given up web1 "));
  EXPECT_THAT(take({put("vmIntent", "web1", R"({"restart":9,"ifEnded":true})")}, {"s3", 201, "h2"}),
              ElementsAre("restart web1 9 if ended", "given up web1 "));
}

// What was asked while no daemon ran, too.
TEST_F(ConfigurationTest, TakesTheNumbersForAskedWhereItGoesOnFromWhereItWas) {
  EXPECT_THAT(take({found("vmIntent", "web1", R"({"restart":7})")}, next),
              ElementsAre("restart web1 7", "given up web1 "));
  EXPECT_THAT(take({found("vmIntent", "web1", R"({"restart":7})")}, {"s9", 101, "h1"}),
              ElementsAre("restart web1 7", "given up web1 "))
      << "a copy of it as it is";
}

TEST_F(ConfigurationTest, IsTakenAsAWholeThoughATakerThrows) {
  interfaceFails = true;
  EXPECT_THROW(take({put("interface", "Vlan1", "{}"), put("vmConfig", "web1", "{}")}, next),
               rt::Exception);
  EXPECT_THAT(effects, ElementsAre("interface Vlan1 {}", "row web1 1"));
}

TEST_F(ConfigurationTest, SaysNothingOfWhatDidNotChange) {
  EXPECT_THAT(take({}, next), IsEmpty());
  EXPECT_EQ(configuration.reached(), next);
}

}  // namespace
}  // namespace host
