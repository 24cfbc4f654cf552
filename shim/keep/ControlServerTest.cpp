// A shim's own socket, with clients that behave and clients that do not.
#include <gmock/gmock.h>
#include <jansson.h>
#include <poll.h>
#include <sys/socket.h>

#include <fstream>
#include <memory>

#include "runtime/base/Release.h"
#include "runtime/base/fakes/TestFolder.h"
#include "shim/base/Failure.h"
#include "shim/keep/ControlServer.h"

namespace shim {
namespace {

using rt::fakes::TestFolder;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

constexpr char greeting[] =
    "{\"shim\":1,\"vm\":\"guest0\",\"pid\":100,\"qemu\":101,"
    "\"state\":\"running\"}";

class ControlServerTest : public testing::Test {
 protected:
  ControlServerTest()
      : server(folder / "shim.sock",
               {[] {
                  return control::greetingLine(
                      {guest::shimProtocol, "guest0", 100, 101, control::State::running});
                },
                [this](ControlServer::Client, const control::Request& request,
                       const rt::Descriptors& descriptors) {
                  return Message{answer(request, descriptors), {}};
                }}) {}

  std::string answer(const control::Request& request, const rt::Descriptors& descriptors) {
    using Kind = control::Request::Kind;
    if (request.kind == Kind::status)
      return control::statusLine({control::State::running,
                                  101,
                                  true,
                                  "/dev/pts/7",
                                  {"netdev_set net0 hostnet0: no room"}});
    if (request.kind == Kind::adopt && descriptors.empty())
      throw control::RequestError(
          "adopt: the daemon's process is missing: send a descriptor of it along");
    if (request.kind == Kind::stop) ++stops;
    return control::doneLine();
  }
  // Lets the server do all that it can do now.
  void work() {
    for (int i = 0; i < 10'000; ++i) {
      std::vector<pollfd> polled;
      server.addTo(polled);
      if (poll(polled.data(), polled.size(), 0) <= 0) return;
      server.ready(polled.data());
    }
    FAIL() << "it never rests";
  }
  std::unique_ptr<Wire> connected() {
    auto client = std::make_unique<Wire>(connectionTo(folder / "shim.sock"), 1 << 20);
    work();
    return client;
  }
  // What the client hears until there is nothing more for it.
  std::vector<std::string> heard(Wire& client) {
    std::vector<std::string> lines;
    for (;;) {
      work();
      pollfd polled{client.number(), POLLIN, 0};
      if (client.isClosed() || poll(&polled, 1, 0) <= 0) return lines;
      for (Message& message : client.receive()) lines.push_back(std::move(message.text));
    }
  }
  std::vector<std::string> ask(Wire& client, const std::string& line, size_t descriptors = 0) {
    Message message{line + "\n", {}};
    for (size_t i = 0; i < descriptors; ++i) message.descriptors.emplace_back(dup(STDERR_FILENO));
    client.send(std::move(message));
    return heard(client);
  }

  const TestFolder folder;
  int stops = 0;
  ControlServer server;
};

TEST_F(ControlServerTest, GreetsWhoConnects) {
  const auto client = connected();
  EXPECT_THAT(heard(*client), ElementsAre(greeting));
  EXPECT_EQ(rt::fakes::modeOf(folder / "shim.sock"), 0660);
}

TEST_F(ControlServerTest, SpeaksVersion1AsItWasShipped) {
  const auto client = connected();
  std::vector<std::string> heardLines = heard(*client);
  std::ifstream in(VMAGENT_TEST_DATA "/shim/protocol-1.jsonl");
  int lines = 0;
  for (std::string text; std::getline(in, text); ++lines) {
    const std::unique_ptr<json_t, rt::Release<json_decref>> entry(
        json_loads(text.c_str(), 0, nullptr));
    const char* direction = "";
    const char* raw = "";
    int descriptors = 0;
    ASSERT_EQ(json_unpack(entry.get(), "{s:s, s:s, s?i}", "dir", &direction, "raw", &raw, "fds",
                          &descriptors),
              0)
        << text;
    if (*direction == '>') heardLines = ask(*client, raw, static_cast<size_t>(descriptors));
    if (*direction == '<') {
      EXPECT_THAT(heardLines, ElementsAre(raw));
    }
  }
  EXPECT_GT(lines, 20);
  EXPECT_EQ(stops, 3);
}

TEST_F(ControlServerTest, AnswersSeveralClientsEachByItself) {
  const auto first = connected();
  const auto second = connected();
  heard(*second);
  heard(*first);
  EXPECT_THAT(ask(*first, R"({"status":{}})"), SizeIs(1));
  EXPECT_THAT(heard(*second), IsEmpty());
}

TEST_F(ControlServerTest, HearsWhatWasSaidWhileItStoodStillHoweverManyCame) {
  constexpr int all = ControlServer::mostClients + 1;  // as many as may wait
  for (int i = 0; i < all; ++i) {
    Wire client(connectionTo(folder / "shim.sock"), 1 << 20);
    client.send({"{\"stop\":{\"timeout\":1}}\n", {}});
  }
  work();
  EXPECT_EQ(stops, all);
}

TEST_F(ControlServerTest, AnswersWhoHasSentItsLastRequest) {
  const auto client = connected();
  heard(*client);
  client->send({"{\"status\":{}}\n", {}});
  shutdown(client->number(), SHUT_WR);
  EXPECT_THAT(heard(*client), ElementsAre(StartsWith("{\"return\"")));
  EXPECT_TRUE(client->isClosed());
}

TEST_F(ControlServerTest, SaysOfItsSocketThatItIsTheControlSocket) {
  const std::string path = folder / "taken";
  std::ofstream(path) << "mine";
  try {
    const ControlServer other(path, {});
    FAIL() << "nothing was thrown";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.what(), "control path " + path + " is taken by what is no socket: remove it");
  }
}

TEST_F(ControlServerTest, HeedsWhoAsksAndLeavesAtOnce) {
  const std::string stop = control::stopLine(Duration(15'000));
  {
    const rt::Descriptor client = connectionTo(folder / "shim.sock");
    ASSERT_EQ(send(client.number(), stop.data(), stop.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(stop.size()));
  }
  work();
  EXPECT_EQ(stops, 1);
  const auto client = connected();
  client->send({stop, {}});
  shutdown(client->number(), SHUT_RDWR);
  work();
  EXPECT_EQ(stops, 2);
}

TEST_F(ControlServerTest, TellsAllOfTheEnd) {
  const auto first = connected();
  const auto second = connected();
  heard(*first);
  heard(*second);
  server.tellAll(control::endLine(0));
  EXPECT_THAT(heard(*first), ElementsAre("{\"end\":{\"exit\":0}}"));
  EXPECT_THAT(heard(*second), ElementsAre("{\"end\":{\"exit\":0}}"));
}

TEST_F(ControlServerTest, DropsWhoIsNeverUnderstood) {
  const auto client = connected();
  heard(*client);
  for (int i = 0; i < ControlServer::mostMistakes; ++i)
    EXPECT_THAT(ask(*client, "what?"), ElementsAre(HasSubstr("error")));
  EXPECT_TRUE(client->isClosed());
  EXPECT_EQ(stops, 0);
}

TEST_F(ControlServerTest, DropsWhoSendsALineWithoutAnEnd) {
  const auto client = connected();
  heard(*client);
  client->send({std::string(2 * ControlServer::longestRequest, 'x'), {}});
  for (int i = 0; i < 100 && !client->isClosed(); ++i) {
    heard(*client);
    client->flush();
  }
  EXPECT_TRUE(client->isClosed());
}

TEST_F(ControlServerTest, DropsWhoDoesNotReadItsAnswers) {
  const auto client = connected();
  const auto other = connected();
  heard(*other);
  for (int i = 0; i < 100'000 && !client->isClosed(); ++i) {
    client->send({"{\"status\":{}}\n", {}});
    work();
    pollfd polled{client->number(), POLLRDHUP, 0};
    if (poll(&polled, 1, 0) > 0) break;
    ASSERT_LT(i, 99'999) << "it is never dropped";
  }
  EXPECT_THAT(ask(*other, R"({"status":{}})"), SizeIs(1));
}

TEST_F(ControlServerTest, MakesRoomByDroppingTheOneThatWasIdleForLongest) {
  std::vector<std::unique_ptr<Wire>> clients;
  for (size_t i = 0; i < ControlServer::mostClients; ++i) clients.push_back(connected());
  heard(*clients[0]);
  ask(*clients[0], R"({"status":{}})");
  const auto late = connected();
  EXPECT_THAT(heard(*late), ElementsAre(greeting));
  heard(*clients[1]);
  EXPECT_TRUE(clients[1]->isClosed());
  EXPECT_THAT(ask(*clients[0], R"({"status":{}})"), SizeIs(1));
}

TEST_F(ControlServerTest, KeepsWhoIsToStayHoweverIdle) {
  const auto kept = connected();
  heard(*kept);
  server.keep(1);
  std::vector<std::unique_ptr<Wire>> clients;
  for (size_t i = 0; i < 2 * ControlServer::mostClients; ++i) clients.push_back(connected());
  EXPECT_TRUE(server.isConnected(1));
  EXPECT_THAT(ask(*kept, R"({"status":{}})"), SizeIs(1));
}

TEST_F(ControlServerTest, KnowsWhoIsGone) {
  auto client = connected();
  EXPECT_TRUE(server.isConnected(1));
  client.reset();
  work();
  EXPECT_FALSE(server.isConnected(1));
}

}  // namespace
}  // namespace shim
