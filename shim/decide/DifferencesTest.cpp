#include <gmock/gmock.h>

#include <sstream>

#include "shim/decide/Differences.h"

namespace shim {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

CommandLine lineOf(const std::string& memory, const std::string& rest) {
  std::istringstream in("-S -M pc -m " + memory +
                        " -name guest0 -chardev socket,id=monitor,path=/run/m,server,nowait "
                        "-nographic -drive file=/a.img,if=none,id=ide-drive0 "
                        "-device ide-hd,drive=ide-drive0 " +
                        rest);
  std::vector<std::string> words;
  for (std::string word; in >> word;) words.push_back(word);
  return readCommandLine(words);
}

constexpr char twoCards[] =
    "-device e1000,id=net0,mac=52:54:00:00:00:0a -device rtl8139,id=net1,mac=52:54:00:00:00:0b";

TEST(Differences, AreNoneOfTheSameCommandLine) {
  EXPECT_THAT(restartReasons(lineOf("32", twoCards), lineOf("32", twoCards)), IsEmpty());
}

TEST(Differences, AreNoneOfAnotherMonitorPath) {
  CommandLine guest = lineOf("32", "");
  EXPECT_THAT(
      restartReasons(guest, lineOf("32", "-chardev socket,id=monitor,path=/var/run/guest0.m")),
      IsEmpty());
}

TEST(Differences, NameWhatWasChanged) {
  const CommandLine guest = lineOf("32", "");
  EXPECT_THAT(restartReasons(guest, lineOf("64", "")),
              ElementsAre("restart needed: memory was changed"));
  EXPECT_THAT(restartReasons(guest, lineOf("32", "-drive file=/b.img,if=none,id=x")),
              ElementsAre("restart needed: disk image was changed"));
  EXPECT_THAT(restartReasons(guest, lineOf("32", "-device ide-cd,drive=x")),
              ElementsAre("restart needed: disk image was changed"));
  EXPECT_THAT(restartReasons(guest, lineOf("32", "-vnc 0.0.0.0:1")),
              ElementsAre("restart needed: display was changed"));
  EXPECT_THAT(restartReasons(guest, lineOf("64", "-usb")),
              ElementsAre("restart needed: memory was changed",
                          "restart needed: command line was changed"));
}

TEST(Differences, NameTheCardsByTheirAddresses) {
  const CommandLine guest = lineOf("32", twoCards);
  EXPECT_THAT(restartReasons(guest, lineOf("32",
                                           "-device e1000,id=net0,mac=52:54:00:00:00:0a "
                                           "-device e1000,id=net1,mac=52:54:00:00:00:0c")),
              ElementsAre("restart needed: the guest has no card with MAC address "
                          "52:54:00:00:00:0c",
                          "restart needed: card 52:54:00:00:00:0b is to be none of the guest's"));
  EXPECT_THAT(
      restartReasons(lineOf("32", "-device e1000,id=net0,mac=52:54:00:00:00:0a"),
                     lineOf("32", "-device virtio-net-pci,id=net0,mac=52:54:00:00:00:0a")),
      ElementsAre(
          "restart needed: card 52:54:00:00:00:0a is a e1000, and is to be a virtio-net-pci"));
}

TEST(Differences, AreNoneOfCardsInAnotherOrder) {
  const CommandLine wanted = lineOf("32",
                                    "-device rtl8139,id=net0,mac=52:54:00:00:00:0B "
                                    "-device e1000,id=net1,mac=52:54:00:00:00:0A");
  EXPECT_THAT(restartReasons(lineOf("32", twoCards), wanted), IsEmpty());
  EXPECT_THAT(cardNames(lineOf("32", twoCards), wanted),
              ElementsAre(Pair("net0", "net1"), Pair("net1", "net0")));
}

TEST(Differences, GiveACardThatTheGuestHasNotNoName) {
  EXPECT_THAT(cardNames(lineOf("32", twoCards),
                        lineOf("32", "-device e1000,id=net0,mac=52:54:00:00:00:0c")),
              IsEmpty());
}

}  // namespace
}  // namespace shim
