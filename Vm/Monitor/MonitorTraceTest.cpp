// The traces by which a session's functions are entered, whole.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "Vm/Monitor/fakes/MonitorSession.h"
#include "runtime/fakes/TraceRecorder.h"

namespace Vm {

namespace {

using testing::ElementsAre;
using Lines = std::vector<std::string>;

const std::string queryStatus = "{ \"execute\": \"query-status\",\"id\": \"status\" }\n";

class MonitorTrace : public testing::Test, protected fakes::MonitorSession {
 protected:
  // What was traced that names that function; level 8, or the line says so.
  Lines of(const std::string& function) {
    Lines lines = traces.take();
    std::erase_if(lines, [&](const std::string& line) {
      return line.find("::" + function + "(") == std::string::npos;
    });
    return lines;
  }

  rt::fakes::TraceRecorder traces;
};

TEST_F(MonitorTrace, OfTheInitializationSaysWhetherItWasDone) {
  // The session was made before the recorder.
  const auto another = rt::make<MonitorSm>(rt::make<MonitorInput>(0U), output, status,
                                           rt::make<rt::FileDescriptor>("none"), clock);
  EXPECT_THAT(of("MonitorSm::handleInitialized"),
              ElementsAre("8 void Vm::MonitorSm::handleInitialized() initialized ? false"));
}

TEST_F(MonitorTrace, OfAQueuedRequestHasItsSignatureTextIdDescriptorAndWhetherMoreFollow) {
  issue(MonitorCommand::queryStatus);
  EXPECT_THAT(of("MonitorSm::qmpQueueRequest"),
              ElementsAre("8 void Vm::MonitorSm::qmpQueueRequest(const String&, QmpIdTypes, "
                          "uint32_t, bool) req: " +
                          queryStatus + " id: status fd: -1 more: false"));
}

TEST_F(MonitorTrace, OfAQueuedRequestWithADescriptorHasItsNumber) {
  const auto file = fakes::fileWith("tap");
  issue(MonitorCommand::backendAdd,
        fakes::backendArgs(static_cast<uint32_t>(file), "tap1", "net1", "nic1"));
  EXPECT_EQ(of("MonitorSm::qmpQueueRequest").front(),
            "8 void Vm::MonitorSm::qmpQueueRequest(const String&, QmpIdTypes, uint32_t, bool) "
            "req: { \"execute\": \"getfd\",\"arguments\": {\"fdname\": \"tap1\"},\"id\": "
            "\"getfd\" }\n id: getfd fd: " +
                std::to_string(int{file}) + " more: true");
}

TEST_F(MonitorTrace, OfASentRequestHasItsSignatureTextAndDescriptor) {
  connect();
  traces.take();
  issue(MonitorCommand::queryStatus);
  EXPECT_THAT(of("MonitorSm::doIssueQmpRequest"),
              ElementsAre("8 void Vm::MonitorSm::doIssueQmpRequest(const String&, uint32_t) for " +
                          queryStatus + " with fd -1"));
}

TEST_F(MonitorTrace, OfWhatCameIsItsSignature) {
  hear(fakes::eventOf("STOP"));
  EXPECT_THAT(of("MonitorSm::handleQmpResponse"),
              ElementsAre("8 void Vm::MonitorSm::handleQmpResponse(const String&)"));
}

}  // namespace

}  // namespace Vm
