// Messages and descriptors over a real stream.
#include <gmock/gmock.h>
#include <sys/socket.h>

#include "shim/fakes/RelayWorld.h"
#include "shim/keep/Wire.h"

namespace shim {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class WirePair : public testing::Test {
 protected:
  WirePair() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0) std::abort();
    near = std::make_unique<Wire>(rt::Descriptor(ends[0]), 1024);
    far = std::make_unique<Wire>(rt::Descriptor(ends[1]), 1024);
  }
  static Message with(const std::string& text, rt::Descriptor descriptor) {
    Message message{text, {}};
    message.descriptors.push_back(std::move(descriptor));
    return message;
  }
  static std::vector<std::string> shown(const std::vector<Message>& messages) {
    std::vector<std::string> all;
    all.reserve(messages.size());
    for (const Message& message : messages)
      all.push_back(message.text + "/" + std::to_string(message.descriptors.size()));
    return all;
  }

  std::unique_ptr<Wire> near;
  std::unique_ptr<Wire> far;
};

TEST_F(WirePair, CarriesMessagesBothWays) {
  near->send({"a\n", {}});
  far->send({"b\n", {}});
  EXPECT_THAT(shown(far->receive()), ElementsAre("a/0"));
  EXPECT_THAT(shown(near->receive()), ElementsAre("b/0"));
  EXPECT_THAT(near->receive(), IsEmpty());
  EXPECT_FALSE(near->isClosed());
}

TEST_F(WirePair, CarriesEachDescriptorWithItsMessage) {
  fakes::Probe first;
  fakes::Probe second;
  near->send({"a\n", {}});
  near->send(with("b\n", std::move(first.given)));
  near->send({"c\n", {}});
  near->send(with("d\n", std::move(second.given)));
  std::vector<Message> got;
  for (int i = 0; i < 4; ++i)
    for (Message& message : far->receive()) got.push_back(std::move(message));
  EXPECT_THAT(shown(got), ElementsAre("a/0", "b/1", "c/0", "d/1"));
  got.erase(got.begin() + 1);
  EXPECT_TRUE(first.isClosed());
  EXPECT_FALSE(second.isClosed());
}

TEST_F(WirePair, ClosesOnlyItsOwnCopyOfADescriptor) {
  fakes::Probe probe;
  near->send(with("a\n", std::move(probe.given)));
  EXPECT_FALSE(probe.isClosed());
  far->receive();
  EXPECT_TRUE(probe.isClosed());
}

TEST_F(WirePair, KeepsWhatThePeerDoesNotTakeYet) {
  const std::string line = std::string(1'000, 'x') + "\n";
  size_t sent = 0;
  for (; !near->isBlocked(); ++sent) near->send({line, {}});
  EXPECT_GT(near->unsent(), 0U);
  size_t received = 0;
  while (received < sent) {
    received += far->receive().size();
    near->flush();
  }
  EXPECT_FALSE(near->isBlocked());
  EXPECT_EQ(near->unsent(), 0U);
}

TEST_F(WirePair, ReadsAllBeforeTheEnd) {
  near->send({"a\n", {}});
  near.reset();
  EXPECT_THAT(shown(far->receive()), ElementsAre("a/0"));
  EXPECT_FALSE(far->isClosed());
  EXPECT_THAT(far->receive(), IsEmpty());
  EXPECT_TRUE(far->isClosed());
}

TEST_F(WirePair, SurvivesAPeerThatIsGone) {
  far->send({"last\n", {}});
  far.reset();
  near->send({"a\n", {}});
  EXPECT_FALSE(near->isBlocked());
  EXPECT_THAT(shown(near->receive()), ElementsAre("last/0"));
}

TEST_F(WirePair, CountsWhatItDropped) {
  near->send({std::string(2'000, 'x') + "\n", {}});
  near->send({"a\n", {}});
  EXPECT_THAT(shown(far->receive()), ElementsAre("a/0"));
  EXPECT_EQ(far->dropped(), 1U);
}

}  // namespace
}  // namespace shim
