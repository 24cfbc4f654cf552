#include <gmock/gmock.h>

#include "shim/decide/QmpStream.h"
#include "shim/fakes/RelayWorld.h"

namespace shim {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// With as many descriptors.
rt::Descriptors some(int count) {
  rt::Descriptors all;
  for (int i = 0; i < count; ++i) all.emplace_back(dup(STDERR_FILENO));
  return all;
}

// The texts, each with the number of its descriptors.
std::vector<std::string> shown(const std::vector<Message>& messages) {
  std::vector<std::string> all;
  all.reserve(messages.size());
  for (const Message& message : messages)
    all.push_back(message.text + "/" + std::to_string(message.descriptors.size()));
  return all;
}

TEST(QmpStream, CutsItsBytesIntoLines) {
  QmpStream stream(100);
  EXPECT_THAT(shown(stream.take("{1}\r\n{2}\n\r\n\n{3", {})), ElementsAre("{1}/0", "{2}/0"));
  EXPECT_THAT(shown(stream.take("}\r", {})), IsEmpty());
  EXPECT_THAT(shown(stream.take("\n", {})), ElementsAre("{3}/0"));
}

TEST(QmpStream, GivesDescriptorsToTheLastMessageOfTheirRead) {
  QmpStream stream(100);
  EXPECT_THAT(shown(stream.take("a\nb\n", some(1))), ElementsAre("a/0", "b/1"));
  EXPECT_THAT(shown(stream.take("c\nd", some(2))), ElementsAre("c/0"));
  EXPECT_THAT(shown(stream.take("e\nf\n", {})), ElementsAre("de/2", "f/0"));
}

TEST(QmpStream, DropsALineThatIsTooLong) {
  QmpStream stream(4);
  EXPECT_THAT(shown(stream.take("1234\n12345\n6\n", {})), ElementsAre("1234/0", "6/0"));
  EXPECT_EQ(stream.dropped(), 1U);
}

TEST(QmpStream, DropsALongLineThatComesInPieces) {
  QmpStream stream(4);
  for (int i = 0; i < 1'000; ++i) EXPECT_THAT(stream.take("xxx", {}), IsEmpty());
  EXPECT_THAT(shown(stream.take("\nok\n", {})), ElementsAre("ok/0"));
  EXPECT_EQ(stream.dropped(), 1U);
}

TEST(QmpStream, KeepsNoMoreDescriptorsOfALineThanCameAtFirst) {
  QmpStream stream(1000);
  for (int i = 0; i < 100; ++i) (void)stream.take("x", some(2));
  EXPECT_THAT(shown(stream.take("\n", {})), ElementsAre(std::string(100, 'x') + "/2"));
}

TEST(QmpStream, ClosesTheDescriptorsOfALineThatIsTooLong) {
  QmpStream stream(4);
  fakes::Probe probe;
  rt::Descriptors one;
  one.push_back(std::move(probe.given));
  stream.take("12345", std::move(one));
  EXPECT_FALSE(probe.isClosed());
  EXPECT_THAT(stream.take("\n", {}), IsEmpty());
  EXPECT_TRUE(probe.isClosed());
}

TEST(QmpStream, CutsTheSameHoweverTheReadsFall) {
  const std::string all = "{\"a\": 1}\r\n{\"b\": 2}\r\n";
  for (size_t size = 1; size <= all.size(); ++size) {
    QmpStream stream(100);
    std::vector<std::string> lines;
    for (size_t at = 0; at < all.size(); at += size)
      for (const Message& message : stream.take(all.substr(at, size), {}))
        lines.push_back(message.text);
    EXPECT_THAT(lines, ElementsAre("{\"a\": 1}", "{\"b\": 2}")) << size;
  }
}

}  // namespace
}  // namespace shim
