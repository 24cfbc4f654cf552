// Which rows may be handed over.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <random>

#include "host/base/Problems.h"
#include "host/database/VmRows.h"
#include "runtime/base/Format.h"
#include "statedb/EntityDocument.h"

namespace host {
namespace {

using statedb::Change;
using statedb::Op;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr model::MachineLimits limits{.memory = 8192};

// A row with a display, if `port` is one, and with a card, if `mac` is one.
rt::String doc(int port, const char* mac = "", int memory = 256) {
  const rt::String card = rt::format(
      R"("nic00":{"model":"e1000","macAddr":"%s","intfName":"Vlan1"})", *mac != 0 ? mac : "-");
  return rt::format(
      R"({"enabled":true,"diskImage":"/images/a.iso","memory":%d,"vncPort":%d,"vnicConfig":{%s}})",
      memory, port, *mac != 0 ? card.charPtr() : "");
}

constexpr const char* macA = "52:54:00:00:00:0a";

class VmRowsTest : public testing::Test {
 protected:
  // A put of a row that is there keeps it the same VM.
  Change put(const rt::String& vm, const rt::String& document) {
    ++revision;
    const uint64_t made = created.try_emplace(vm, revision).first->second;
    return {Op::put, {"vmConfig", vm, document, revision, made}};
  }
  Change putNew(const rt::String& vm, const rt::String& document) {
    created.erase(vm);
    return put(vm, document);
  }
  static Change del(const rt::String& vm) { return {Op::del, {"vmConfig", vm, {}, 0, 0}}; }

  // The same, as a comparison of two stores tells it.
  static Change found(Change change) {
    change.proof = statedb::Proof::comparison;
    return change;
  }

  std::set<rt::String> apply(const std::vector<Change>& changes) { return rows.apply(changes); }
  std::set<rt::String> is(const rt::String& vm, const rt::String& document) {
    return apply({put(vm, document)});
  }
  std::string problems(const char* vm) const { return textOf(rows.row(vm)->problems).str(); }
  // The port in force; -1 when no valid row was there yet.
  int port(const char* vm) const {
    const VmRow* const row = rows.row(vm);
    return row && row->valid ? static_cast<int>(row->valid->vncPort()) : -1;
  }

  VmRows rows{limits};
  uint64_t revision = 0;
  std::map<rt::String, uint64_t> created;
};

TEST_F(VmRowsTest, TakeAValidRowAsItIs) {
  EXPECT_THAT(is("web1", doc(5901, macA)), ElementsAre("web1"));
  const VmRow& row = *rows.row("web1");
  EXPECT_THAT(row.problems, IsEmpty());
  EXPECT_EQ(row.valid->name(), "web1");
  EXPECT_TRUE(row.valid->enabled());
  EXPECT_EQ(row.valid->memory(), 256U);
  EXPECT_EQ(row.valid->vnicConfig("nic00")->intfName(), "Vlan1");
}

TEST_F(VmRowsTest, GiveARowThatLeavesMemoryOutTheDefault) {
  is("web1", R"({"diskImage":"/a"})");
  ASSERT_THAT(problems("web1"), IsEmpty());
  EXPECT_EQ(rows.row("web1")->valid->memory(), model::defaultMemory);
  is("web1", R"({"diskImage":"/a","memory":0})");
  EXPECT_THAT(problems("web1"), HasSubstr("memory: '0' is refused"));
}

TEST_F(VmRowsTest, RefuseARowWithAllThatIsWrong) {
  EXPECT_THAT(is("web1", R"({"diskImage":"a b","memory":0,"vncPort":80})"), ElementsAre("web1"));
  const VmRow& row = *rows.row("web1");
  EXPECT_EQ(row.valid, nullptr);
  ASSERT_EQ(row.problems.size(), 3U);
  EXPECT_EQ(row.problems[0].field, "diskImage");
  EXPECT_EQ(row.problems[1].field, "memory");
  EXPECT_EQ(row.problems[2].field, "vncPort");
}

TEST_F(VmRowsTest, RefuseAFieldThatIsNotKnown) {
  is("web1", R"({"diskImage":"/a","memory":1,"vncport":0})");
  EXPECT_THAT(problems("web1"), HasSubstr("vncport: '0' is refused"));
  EXPECT_EQ(port("web1"), -1);
}

TEST_F(VmRowsTest, RefuseADocumentThatIsNone) {
  is("web1", "[]");
  EXPECT_THAT(problems("web1"), HasSubstr("is refused"));
}

TEST_F(VmRowsTest, RefuseANameThatIsNone) {
  is("web 1", doc(0));
  EXPECT_THAT(problems("web 1"), HasSubstr("name: 'web 1' is refused"));
}

TEST_F(VmRowsTest, LeaveTheHolderWhatItHasAndRefuseTheNewcomer) {
  is("web1", doc(5901, macA));
  EXPECT_THAT(is("web2", doc(5901, macA)), ElementsAre("web2"));
  EXPECT_EQ(port("web1"), 5901);
  EXPECT_THAT(problems("web2"), HasSubstr("VM 'web1' is enabled and has it"));
  EXPECT_THAT(problems("web2"), HasSubstr("card 'nic00' of VM 'web1' has it"));
  EXPECT_EQ(port("web2"), -1);
}

TEST_F(VmRowsTest, OfTwoThatClashInOneSnapshotTakeTheFirst) {
  apply({put("b", doc(5901)), put("a", doc(5901))});
  EXPECT_EQ(port("b"), 5901);
  EXPECT_EQ(port("a"), -1);
}

TEST_F(VmRowsTest, TakeTheNewcomerWhenTheHolderHasGone) {
  is("web1", doc(5901));
  is("web2", doc(5901));
  EXPECT_THAT(apply({del("web1")}), ElementsAre("web1", "web2"));
  EXPECT_EQ(port("web2"), 5901);
  EXPECT_EQ(problems("web2"), "");
  EXPECT_EQ(rows.row("web1"), nullptr);
}

TEST_F(VmRowsTest, TakeTheNewcomerWhenTheHolderHasChanged) {
  is("web1", doc(5901));
  is("web2", doc(5901));
  EXPECT_THAT(is("web1", doc(5902)), ElementsAre("web1", "web2"));
  EXPECT_EQ(port("web2"), 5901);
}

TEST_F(VmRowsTest, OfSeveralNewcomersTakeTheFirst) {
  is("web1", doc(5901));
  is("web3", doc(5901));
  is("web2", doc(5901));
  EXPECT_THAT(apply({del("web1")}), ElementsAre("web1", "web2", "web3"));
  EXPECT_EQ(port("web3"), 5901);
  EXPECT_THAT(problems("web2"), HasSubstr("VM 'web3'")) << "it says who has it now";
}

TEST_F(VmRowsTest, TakeWhatWasFreedInTheSameTransactionWhateverTheOrder) {
  is("web1", doc(5901));
  apply({put("web2", doc(5901)), put("web1", doc(5902))});
  EXPECT_EQ(port("web1"), 5902);
  EXPECT_EQ(port("web2"), 5901);
}

TEST_F(VmRowsTest, FollowAChainWhereOneFreesTheNext) {
  is("a", doc(5901));
  is("b", doc(5902));
  is("c", doc(5903));
  is("c", doc(5902));  // wants b's
  is("b", doc(5901));  // wants a's
  EXPECT_EQ(port("c"), 5903);
  EXPECT_THAT(apply({del("a")}), ElementsAre("a", "b", "c"));
  EXPECT_EQ(port("b"), 5901);
  EXPECT_EQ(port("c"), 5902);
}

TEST_F(VmRowsTest, LeaveTheLastValidRowInForceWhenAChangeIsRefused) {
  is("web1", doc(5901));
  EXPECT_THAT(is("web1", doc(5901, "", 0)), ElementsAre("web1"));
  EXPECT_EQ(port("web1"), 5901);
  EXPECT_EQ(rows.row("web1")->valid->memory(), 256U);
  EXPECT_THAT(problems("web1"), HasSubstr("memory: '0'"));
  is("web2", doc(5901));
  EXPECT_THAT(problems("web2"), HasSubstr("VM 'web1'")) << "what is in force is held";
}

TEST_F(VmRowsTest, TakeTheNextGoodChangeOfARefusedRow) {
  is("web1", doc(5901));
  is("web1", doc(80));
  EXPECT_THAT(is("web1", doc(5902)), ElementsAre("web1"));
  EXPECT_EQ(port("web1"), 5902);
  EXPECT_EQ(problems("web1"), "");
}

TEST_F(VmRowsTest, TakeARowMadeAnewForAnotherVm) {
  is("web1", doc(5901));
  const uint64_t before = rows.row("web1")->vm;
  apply({putNew("web1", doc(5901))});
  EXPECT_EQ(port("web1"), 5901) << "it is not in its own way";
  EXPECT_NE(rows.row("web1")->vm, before);
}

TEST_F(VmRowsTest, TakeAChangedRowForTheSameVms) {
  is("web1", doc(5901));
  const uint64_t before = rows.row("web1")->vm;
  is("web1", doc(5902));
  EXPECT_EQ(rows.row("web1")->vm, before);
  is("web2", doc(5903));
  EXPECT_NE(rows.row("web2")->vm, before);
}

TEST_F(VmRowsTest, TellWhereARowWasMade) {
  const Change change = put("web1", doc(5901));
  rows.apply({change}, "6f1c");
  EXPECT_EQ(rows.row("web1")->origin, (statedb::Origin{"6f1c", change.record.created}));
}

// Rows of a store that took the place of another.

TEST_F(VmRowsTest, TakeARowOfAnotherStoreForTheSameVms) {
  is("web1", doc(5901));
  const uint64_t before = rows.row("web1")->vm;
  rows.apply({found(putNew("web1", doc(5902)))}, "other");
  EXPECT_EQ(port("web1"), 5902);
  EXPECT_EQ(rows.row("web1")->vm, before);
  EXPECT_EQ(rows.row("web1")->origin, (statedb::Origin{"other", revision}));
}

TEST_F(VmRowsTest, ForgetNoVmWhoseRowIsLost) {
  is("web1", doc(5901));
  is("web2", doc(5901));
  const uint64_t before = rows.row("web1")->vm;
  EXPECT_THAT(apply({found(del("web1"))}), ElementsAre("web1", "web2"));
  ASSERT_NE(rows.row("web1"), nullptr);
  EXPECT_TRUE(rows.row("web1")->isLost);
  EXPECT_EQ(port("web1"), -1);
  EXPECT_EQ(port("web2"), 5901) << "what it held is free";
  // However it comes back.
  apply({putNew("web1", doc(5902))});
  EXPECT_FALSE(rows.row("web1")->isLost);
  EXPECT_EQ(port("web1"), 5902);
  EXPECT_EQ(rows.row("web1")->vm, before);
}

TEST_F(VmRowsTest, ForgetALostRowThatIsRemovedAfterAll) {
  is("web1", doc(5901));
  const uint64_t before = rows.row("web1")->vm;
  apply({found(del("web1"))});
  apply({del("web1")});
  EXPECT_EQ(rows.row("web1"), nullptr);
  apply({putNew("web1", doc(5901))});
  EXPECT_NE(rows.row("web1")->vm, before);
}

TEST_F(VmRowsTest, LoseARefusedRowToo) {
  is("web1", doc(5901));
  is("web2", doc(5901));
  apply({found(del("web2"))});
  EXPECT_TRUE(rows.row("web2")->isLost);
  EXPECT_EQ(problems("web2"), "");
  EXPECT_THAT(apply({del("web1")}), ElementsAre("web1")) << "nobody waits for its port";
  EXPECT_THAT(apply({found(del("web9"))}), ElementsAre("web9"));
  EXPECT_EQ(rows.row("web9"), nullptr) << "it never was";
}

TEST_F(VmRowsTest, LeaveNothingOfTheOldVmInForceWhenTheNewOneIsRefused) {
  is("web1", doc(5901));
  is("web2", doc(5901));
  EXPECT_THAT(apply({putNew("web1", doc(80))}), ElementsAre("web1", "web2"));
  EXPECT_EQ(port("web1"), -1);
  EXPECT_EQ(port("web2"), 5901) << "the old one's port is free";
}

TEST_F(VmRowsTest, TakeTwoThatChangePlaces) {
  is("web1", doc(5901));
  is("web2", doc(5902));
  EXPECT_THAT(apply({put("web1", doc(5902)), put("web2", doc(5901))}), ElementsAre("web1", "web2"));
  EXPECT_EQ(port("web1"), 5902);
  EXPECT_EQ(port("web2"), 5901);
}

TEST_F(VmRowsTest, LetThreeChangePlacesButNobodyInTheirPlaceElse) {
  is("a", doc(5901));
  is("b", doc(5902));
  is("c", doc(5903));
  is("d", doc(5901));  // waits for it
  apply({put("a", doc(5902)), put("b", doc(5903)), put("c", doc(5901))});
  EXPECT_EQ(port("a"), 5902);
  EXPECT_EQ(port("b"), 5903);
  EXPECT_EQ(port("c"), 5901);
  EXPECT_EQ(port("d"), -1);
}

TEST_F(VmRowsTest, LeaveBothAsTheyAreWhenOneOfTwoThatWantToChangePlacesIsRefusedOtherwise) {
  is("web1", doc(5901));
  is("web2", doc(5902));
  apply({put("web1", doc(5902)), put("web2", doc(5901, "", 0))});
  EXPECT_EQ(port("web1"), 5901);
  EXPECT_EQ(port("web2"), 5902);
}

TEST_F(VmRowsTest, ForgetARefusedRowThatHasGone) {
  is("web1", doc(5901));
  is("web2", doc(5901));
  EXPECT_THAT(apply({del("web2")}), ElementsAre("web2"));
  EXPECT_EQ(rows.row("web2"), nullptr);
  apply({del("web1")});
  EXPECT_THAT(rows.rows(), IsEmpty());
}

TEST_F(VmRowsTest, NameNobodyWhoseRowIsAsItWas) {
  is("web1", doc(5901));
  is("web2", doc(5901));
  EXPECT_THAT(is("web3", doc(5902)), ElementsAre("web3"));
  EXPECT_THAT(apply({}), IsEmpty());
}

class VmRowsHistoryTest : public VmRowsTest, public testing::WithParamInterface<unsigned> {};

TEST_P(VmRowsHistoryTest, LeavesNoTwoInForceThatClashAndNobodyOutInVain) {
  std::mt19937 random(GetParam());
  const auto dice = [&](int sides) {
    return std::uniform_int_distribution<int>(0, sides - 1)(random);
  };
  std::map<rt::String, rt::String> documents;
  for (int i = 0; i < 40; ++i) {
    const rt::String vm = "web" + rt::toText(dice(4));
    const rt::String mac = rt::format("52:54:00:00:00:%02x", dice(3));
    const rt::String document = doc(5900 + dice(3), mac.charPtr(), dice(8) == 0 ? 0 : 256);
    const bool isGone = dice(5) == 0;
    apply({isGone ? del(vm) : dice(4) == 0 ? putNew(vm, document) : put(vm, document)});
    if (isGone)
      documents.erase(vm);
    else
      documents[vm] = document;
    if (isGone) created.erase(vm);
  }
  const auto inForce = rt::make<Vm::Config>();
  for (const auto& [name, row] : rows.rows())
    if (row.valid) inForce->vmConfigMount(row.valid);
  for (const auto& [name, vm] : inForce->vmConfigs())
    EXPECT_THAT(problemsOf(*vm, *inForce, limits), IsEmpty()) << name;
  EXPECT_EQ(rows.rows().size(), documents.size());
  for (const auto& [name, row] : rows.rows()) {
    SCOPED_TRACE(name);
    const auto asked = rt::make<Vm::VmConfig>(name);
    EXPECT_THAT(statedb::fill(*asked, documents.at(name)), IsEmpty());
    EXPECT_EQ(row.problems, problemsOf(*asked, *inForce, limits));
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, VmRowsHistoryTest, testing::Range(0U, 100U));

// Returns the processor's seconds that it takes to judge so many rows, and one more.
double timeToJudge(int many) {
  std::vector<Change> snapshot;
  snapshot.reserve(static_cast<size_t>(many));
  for (int i = 0; i < many; ++i)
    snapshot.push_back(
        {Op::put,
         {"vmConfig", "vm" + rt::toText(i),
          doc(0, rt::format("52:54:00:00:%02x:%02x", i / 256, i % 256).charPtr()), 1, 1}});
  const Change another{Op::put, {"vmConfig", "vm17", doc(0, "52:54:00:01:00:00", 512), 2, 1}};
  VmRows rows(limits);
  const std::clock_t before = std::clock();
  rows.apply(snapshot);
  rows.apply({another});
  const std::clock_t after = std::clock();
  EXPECT_EQ(rows.rows().size(), static_cast<size_t>(many));
  EXPECT_TRUE(rows.row("vm0")->valid);
  return static_cast<double>(after - before) / CLOCKS_PER_SEC;
}

// Each is held against all others, so ten times as many must not take a hundred times as long.
TEST(ManyVmRows, AreJudgedInATimeInProportionToTheirNumber) {
  const double few = timeToJudge(200);
  EXPECT_LT(timeToJudge(2000), 40 * few);
}

}  // namespace
}  // namespace host
