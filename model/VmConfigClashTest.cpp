// Rules between VMs: who holds an address or a port keeps it.
#include <gmock/gmock.h>

#include "model/VmConfigCheck.h"
#include "model/fakes/Limits.h"
#include "runtime/base/Format.h"

namespace model {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using fakes::limits;

Vm::VmConfig::Ptr vmWith(const rt::String& name, uint32_t port, std::vector<rt::EthAddr> macs) {
  auto vm = rt::make<Vm::VmConfig>(name);
  vm->enabledIs(true);
  vm->diskImageIs("/images/web.iso");
  vm->memoryIs(256);
  vm->vncPortIs(port);
  for (size_t i = 0; i < macs.size(); ++i) {
    const auto card = vm->vnicConfigIs("nic0" + rt::toText(i));
    card->modelIs("e1000");
    card->macAddrIs(macs[i]);
    card->intfNameIs("Vlan1");
  }
  return vm;
}

std::vector<std::string> texts(const std::vector<rt::Problem>& problems) {
  std::vector<std::string> result;
  result.reserve(problems.size());
  for (const auto& problem : problems) result.push_back(problem.text().str());
  return result;
}

// "web1" is there, with a display and two cards.
class VmConfigClash : public testing::Test {
 protected:
  VmConfigClash() { config_->vmConfigMount(holder_); }
  std::vector<std::string> problemsOfOne(const Vm::VmConfig& vm) {
    return texts(problemsOf(vm, *config_, limits));
  }

  const rt::EthAddr macA_{"52:54:00:00:00:0a"};
  const rt::EthAddr macB_{"52:54:00:00:00:0b"};
  const rt::EthAddr macC_{"52:54:00:00:00:0c"};
  const Vm::VmConfig::Ptr holder_ = vmWith("web1", 5900, {macA_, macB_});
  const Vm::Config::Ptr config_ = rt::make<Vm::Config>();
};

TEST_F(VmConfigClash, AnotherVmWithItsOwnPortAndAddressesIsRight) {
  EXPECT_THAT(problemsOfOne(*vmWith("web2", 5901, {macC_})), IsEmpty());
}

TEST_F(VmConfigClash, TheHolderItselfIsRightAlsoWhenItChanges) {
  EXPECT_THAT(problemsOfOne(*holder_), IsEmpty());
  EXPECT_THAT(problemsOfOne(*vmWith("web1", 5900, {macB_, macA_})), IsEmpty());
}

TEST_F(VmConfigClash, TheNewcomerIsRefusedAndToldWhoHoldsWhat) {
  EXPECT_THAT(
      problemsOfOne(*vmWith("web0", 5900, {macC_, macB_})),
      ElementsAre("vncPort: '5900' is refused: must be another port, or 0 for none: VM 'web1' is "
                  "enabled and has it",
                  "vnicConfig.nic01.macAddr: '52:54:00:00:00:0b' is refused: must be another "
                  "address: card 'nic01' of VM 'web1' has it"));
}

TEST_F(VmConfigClash, TheHolderKeepsWhatItHasThoughTheNewcomerAsksForIt) {
  ConfigIndex index(*config_);
  EXPECT_EQ(problemsOf(*vmWith("web0", 5900, {macA_}), index, limits).size(), 2U);
  EXPECT_THAT(texts(problemsOf(*holder_, index, limits)), IsEmpty());
}

TEST_F(VmConfigClash, OfTwoThatAreThereAndClashBothAreToldWhenAsked) {
  config_->vmConfigMount(vmWith("web2", 5901, {macA_}));
  EXPECT_THAT(problemsOfOne(*holder_), ElementsAre(testing::HasSubstr("of VM 'web2' has it")));
}

TEST_F(VmConfigClash, APortIsFreeWhileEitherVmIsNotEnabled) {
  const auto newcomer = vmWith("web2", 5900, {});
  newcomer->enabledIs(false);
  EXPECT_THAT(problemsOfOne(*newcomer), IsEmpty());
  newcomer->enabledIs(true);
  EXPECT_EQ(problemsOfOne(*newcomer).size(), 1U);
  holder_->enabledIs(false);
  EXPECT_THAT(problemsOfOne(*newcomer), IsEmpty());
}

TEST_F(VmConfigClash, AnyNumberOfVmsMayHaveNoDisplay) {
  config_->vmConfigMount(vmWith("web2", 0, {}));
  EXPECT_THAT(problemsOfOne(*vmWith("web3", 0, {})), IsEmpty());
}

TEST_F(VmConfigClash, AnAddressIsTakenAlsoByAVmThatIsNotEnabled) {
  holder_->enabledIs(false);
  const auto newcomer = vmWith("web2", 0, {macA_});
  newcomer->enabledIs(false);
  EXPECT_EQ(problemsOfOne(*newcomer).size(), 1U);
}

TEST_F(VmConfigClash, AnAddressTwiceInOneVmIsRefusedOnItsLaterCards) {
  EXPECT_THAT(problemsOfOne(*vmWith("web2", 0, {macC_, macC_, macC_})),
              ElementsAre("vnicConfig.nic01.macAddr: '52:54:00:00:00:0c' is refused: must be "
                          "another address: card 'nic00' has it",
                          "vnicConfig.nic02.macAddr: '52:54:00:00:00:0c' is refused: must be "
                          "another address: card 'nic00' has it"));
}

TEST_F(VmConfigClash, AnAddressThatIsNoneIsToldOnceAndNotAsAClash) {
  const rt::EthAddr zero;
  const rt::EthAddr group("ff:ff:ff:ff:ff:ff");
  config_->vmConfigMount(vmWith("web2", 0, {zero, group}));
  EXPECT_EQ(problemsOfOne(*vmWith("web3", 0, {zero, zero, group})).size(), 3U);
  EXPECT_EQ(problemsOfOne(*vmWith("web3", 7, {}))[0],
            "vncPort: '7' is refused: must be 5900 to 5910, or 0 for no display");
}

TEST_F(VmConfigClash, WhatTheHolderGivesUpIsFree) {
  ConfigIndex index(*config_);
  const auto newcomer = vmWith("web2", 5900, {macA_});
  index.vmIs(*vmWith("web1", 5901, {macB_}));
  EXPECT_THAT(texts(problemsOf(*newcomer, index, limits)), IsEmpty());
  index.vmIs(*newcomer);
  EXPECT_EQ(problemsOf(*holder_, index, limits).size(), 2U) << "now it is the newcomer";
}

// Passes questions on to an index and counts them.
class CountedHolders final : public Holders {
 public:
  explicit CountedHolders(const Holders& holders) : holders_(holders) {}
  std::optional<CardName> cardWith(const rt::EthAddr& mac, const rt::String& vm) const override {
    ++questions;
    return holders_.cardWith(mac, vm);
  }
  std::optional<rt::String> vmWithPort(uint32_t port, const rt::String& vm) const override {
    ++questions;
    return holders_.vmWithPort(port, vm);
  }
  mutable size_t questions = 0;

 private:
  const Holders& holders_;
};

// One question costs O(log n), and nothing else is asked.
TEST(VmConfigClashOfMany, TenThousandVmsAskThirtyThousandQuestions) {
  ConfigIndex index;
  const CountedHolders holders(index);
  for (unsigned n = 0; n < 10'000; ++n) {
    const auto address = [&](unsigned card) {
      return rt::EthAddr(rt::format("52:54:00:%02x:%02x:%02x", card, n >> 8U, n & 0xffU));
    };
    const auto vm = vmWith(rt::format("vm%u", n), 5900, {address(0), address(1)});
    vm->enabledIs(n == 0);
    vm->enabledIs(true);
    const auto problems = problemsOf(*vm, holders, limits);
    ASSERT_EQ(problems.size(), n == 0 ? 0U : 1U) << "the first holds the port";
    vm->enabledIs(n == 0);
    index.vmIs(*vm);
  }
  EXPECT_EQ(holders.questions, 30'000U);
}

}  // namespace
}  // namespace model
