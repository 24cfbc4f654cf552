#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "model/ImageLook.h"

namespace model {
namespace {

ImageFacts ofSize(uint64_t size) {
  ImageFacts facts;
  facts.kind = ImageFacts::Kind::regular;
  facts.size = size;
  return facts;
}

ImageFacts never() {
  while (true) pause();
}

TEST(ImageLook, BringsTheFactsFromAProcessOfItsOwn) {
  const pid_t ours = getpid();
  const ImageFacts facts =
      imageFactsWithin([&] { return ofSize(getpid() == ours ? 1 : 2); }, rt::Seconds(10));
  EXPECT_EQ(facts.kind, ImageFacts::Kind::regular);
  EXPECT_EQ(facts.size, 2U);
}

TEST(ImageLook, ThatIsNotAnsweredEndsWithItsPatience) {
  EXPECT_EQ(imageFactsWithin(never, rt::Seconds(0.01)).error, ETIMEDOUT);
}

TEST(ImageLook, WhoseProcessIsKilledTellsSo) {
  const ImageFacts facts = imageFactsWithin(
      [] {
        kill(getpid(), SIGKILL);
        return never();
      },
      rt::Seconds(10));
  EXPECT_EQ(facts.error, ECANCELED);
}

TEST(ImageLook, HasNoneOfOurDescriptors) {
  const int ours = open("/dev/null", O_RDONLY);
  const ImageFacts facts = imageFactsWithin(
      [&] { return unreadable(fcntl(ours, F_GETFD) < 0 ? EBADF : 0); }, rt::Seconds(10));
  close(ours);
  EXPECT_EQ(facts.error, EBADF);
}

TEST(ImageLook, LeavesNoDescriptorAndNoProcess) {
  const int before = dup(0);
  close(before);
  const auto its = [] { return ofSize(static_cast<uint64_t>(getpid())); };
  const auto process = static_cast<pid_t>(imageFactsWithin(its, rt::Seconds(10)).size);
  const int after = dup(0);
  close(after);
  EXPECT_EQ(after, before);
  EXPECT_GT(process, 1);
  EXPECT_EQ(waitpid(process, nullptr, WNOHANG), -1) << "it was not waited for";
}

}  // namespace
}  // namespace model
