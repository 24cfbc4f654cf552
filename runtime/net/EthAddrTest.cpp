#include <gtest/gtest.h>

#include <unordered_set>

#include "runtime/base/Exception.h"
#include "runtime/net/EthAddr.h"

namespace rt {
namespace {

constexpr EthAddr sample{EthAddr::Bytes{0x02, 0x0a, 0xff, 0x00, 0x10, 0x9b}};

TEST(EthAddr, IsAllZerosAtFirst) { EXPECT_EQ(EthAddr().text(), "00:00:00:00:00:00"); }

TEST(EthAddr, IsTextInLowerCaseBetweenColons) { EXPECT_EQ(sample.text(), "02:0a:ff:00:10:9b"); }

class EthAddrForm : public ::testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(Of, EthAddrForm,
                         ::testing::Values("02:0a:ff:00:10:9b", "02-0a-ff-00-10-9b",
                                           "020a.ff00.109b", "02:0A:FF:00:10:9B",
                                           "02-0A-fF-00-10-9b", "020A.FF00.109B"));

TEST_P(EthAddrForm, IsRead) {
  EXPECT_EQ(EthAddr::fromText(GetParam()), sample);
  EXPECT_EQ(EthAddr(String(GetParam())), sample);
}

class NoEthAddr : public ::testing::TestWithParam<std::string> {};
INSTANTIATE_TEST_SUITE_P(
    Of, NoEthAddr,
    ::testing::Values("", " ", "0", "hello", "02:0a:ff:00:10",
                      "02:0a:ff:00:10:", "02:0a:ff:00:10:9b:", ":02:0a:ff:00:10:9b",
                      "02:0a:ff:00:10:9b:01", "2:a:ff:0:10:9b", "02:0a:ff:00:10:9",
                      "02:0a:ff:00:10:09b", "02:0a:ff:00:10-9b", "02:0a-ff:00-10:9b",
                      "02-0a-ff-00-10:9b", "020a:ff00:109b", "020a-ff00-109b", "020a.ff00",
                      "020a.ff00.109b.0000", "020a.ff00.109", "020a.ff00:109b", "02.0a.ff.00.10.9b",
                      "020aff00109b", " 02:0a:ff:00:10:9b", "02:0a:ff:00:10:9b ",
                      "02:0a:ff:00:10: b", "02 0a ff 00 10 9b", "02:0a:ff:00:10:0g",
                      "02:0a:ff:00:10:-1", "02:0a:ff:00:10:+1", "02:0a:ff:00:10:0x",
                      "0x:0a:ff:00:10:9b", std::string("02:0a:ff:00:10:9\0", 17),
                      std::string("02:0a:ff\0"
                                  "00:10:9b",
                                  17),
                      "02::a:ff:00:10:9b", "02:0a:ff:00:10:9b\n"));

TEST_P(NoEthAddr, IsRefused) { EXPECT_EQ(EthAddr::fromText(GetParam()), std::nullopt); }

TEST_P(NoEthAddr, ThrowsWithTheTextInIt) {
  try {
    EthAddr address{String(GetParam())};
    FAIL() << "taken as " << address.text();
  } catch (const RangeException& e) {
    EXPECT_EQ(e.value(), GetParam());
  }
}

TEST(EthAddr, ExceptionSaysTheText) {
  try {
    EthAddr address{String("hello")};
    FAIL() << "taken as " << address.text();
  } catch (const RangeException& e) {
    EXPECT_STREQ(e.what(), "EthAddr: 'hello' is no MAC address");
  }
}

TEST(EthAddr, TextAndBackIsTheSame) {
  EXPECT_EQ(EthAddr::fromText(sample.text()), sample);
  EXPECT_EQ(EthAddr::fromText(EthAddr().text()), EthAddr());
}

TEST(EthAddr, UnicastIsAnAddressOfOneStation) {
  EXPECT_TRUE(sample.isUnicast());
  EXPECT_TRUE(EthAddr(String("00:00:00:00:00:01")).isUnicast());
  EXPECT_TRUE(EthAddr(String("fe:ff:ff:ff:ff:ff")).isUnicast());
}

TEST(EthAddr, GroupsAndAllZerosAreNotUnicast) {
  EXPECT_FALSE(EthAddr().isUnicast());
  EXPECT_FALSE(EthAddr(String("ff:ff:ff:ff:ff:ff")).isUnicast());
  EXPECT_FALSE(EthAddr(String("01:00:5e:00:00:01")).isUnicast());
}

TEST(EthAddr, OrdersByItsBytesFromTheFirst) {
  EXPECT_LT(EthAddr(String("00:00:00:00:00:ff")), EthAddr(String("01:00:00:00:00:00")));
  EXPECT_LT(EthAddr(String("7f:00:00:00:00:00")), EthAddr(String("80:00:00:00:00:00")));
}

TEST(EthAddr, HashIsEqualForEqualAddressesAndTellsOthersApart) {
  std::unordered_set<EthAddr> addresses{sample, EthAddr(sample.text()), EthAddr()};
  EXPECT_EQ(addresses.size(), 2U);
  const std::hash<EthAddr> hash;
  EXPECT_NE(hash(EthAddr(String("00:00:00:00:00:01"))), hash(EthAddr(String("01:00:00:00:00:00"))));
}

}  // namespace
}  // namespace rt
