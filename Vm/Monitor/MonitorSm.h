// One QMP session: the client of one VM's monitor socket.
#pragma once

#include "Vm/Monitor/MonitorRecords.h"
#include "Vm/Monitor/QmpRequestType.h"
#include "Vm/QmpParser/QmpParserSm.h"
#include "runtime/entity/OrderedQueue.h"
#include "runtime/entity/Reactor.h"
#include "runtime/loop/Clock.h"
#include "runtime/loop/FileDescriptor.h"

namespace Vm {

// Turns commands into queued QMP requests, sends them one at a time and publishes results.
//
//   greeted | pending | event                            | it does
//   no      | no      | command                          | queues its requests
//   no      | no      | greeting                         | sends the front one; asks for run state
//           |         |                                  |   and character devices
//   yes     | no      | command                          | queues its requests, sends the first
//   yes     | yes     | command                          | queues its requests
//   yes     | yes     | reply with another id            | nothing
//   yes     | yes     | return, more to come             | sends the front one
//   yes     | yes     | return to the last of a command  | publishes the result (for the
//           |         |                                  |   capabilities: connected), sends
//   yes     | yes     | error                            | publishes nothing, sends the front one
//   yes     | yes     | 5 s passed                       | drops the rest of the command,
//           |         |                                  |   publishes a failure, sends
//   any     | any     | end of stream, connection reset  | disconnected
//
// Owned by the VM's machine, which makes one as soon as the socket is connected and destroys it to
// end the session. It reads and writes the socket but does not own it.
class MonitorSm final : public rt::StateMachineOf<MonitorSm> {
 public:
  using QmpRequestType = Vm::QmpRequestType;

  MonitorSm(MonitorInput::Ptr monitorInput, MonitorOutput::Ptr monitorOutput,
            MonitorStatus::Ptr monitorStatus, rt::FileDescriptor::Ptr monFd,
            rt::Clock::Ptr timeoutClock);

  const MonitorInput::Ptr& monitorInput() const { return monitorInput_.notifier(); }
  const MonitorOutput::Ptr& monitorOutput() const { return monitorOutput_; }
  const MonitorStatus::Ptr& monitorStatus() const { return monitorStatus_; }
  const rt::FileDescriptor::Ptr& monFd() const { return monFd_.notifier(); }
  const rt::Clock::Ptr& timeoutClock() const { return timeoutClock_.notifier(); }
  const QmpParserRequest::Ptr& qmpParserRequest() const { return qmpParserRequest_; }
  const QmpParserResponse::Ptr& qmpParserResponse() const {
    return qmpParserResponseInput_.notifier();
  }
  const QmpParserSm::Ptr& qmpParser() const { return qmpParser_; }

  // QEMU's greeting has been received.
  bool helloMessage() const { return helloMessage_; }
  // A request was written and its reply is awaited: `qmpPendingRequest`.
  bool isPendingRequest() const { return isPendingRequest_; }
  const QmpRequestType& qmpPendingRequest() const { return qmpPendingRequest_; }

  // Written from outside only, by generic access. At 10 or more the VM's machine rebuilds the
  // session at its next monitoring tick.
  uint32_t qmpNotHeardFor() const { return qmpNotHeardFor_; }
  void qmpNotHeardForIs(uint32_t count) {
    assign<&MonitorSm::qmpNotHeardFor>(qmpNotHeardFor_, count);
  }
  // Of no effect: a request always has 5 seconds.
  rt::Seconds timeoutInterval() const { return timeoutInterval_; }

  // The requests that wait, by an index that only grows. Reading where there is none gives a
  // default value; adding to a full queue throws QueueFullException.
  uint32_t qmpRequests() const { return qmpRequest_.size(); }
  const rt::OrderedQueue<QmpRequestType>& qmpRequestQueue() const { return qmpRequest_; }
  QmpRequestType qmpRequest(uint32_t index) const { return qmpRequest_.at(index); }
  QmpRequestType qmpRequestFront() const { return qmpRequest_.front(); }
  QmpRequestType qmpRequestBack() const { return qmpRequest_.back(); }
  void qmpRequestEnq(const QmpRequestType& request);
  QmpRequestType qmpRequestDeq();
  void qmpRequestIs(uint32_t index, const QmpRequestType& request);
  void qmpRequestDel(uint32_t index);
  void qmpRequestDelAll();

  // The queue goes at once: a session that is removed within what it tells writes nothing more.
  void handleRemoval() override;
  // Of the session, its reactors and the descriptor, which nobody would read meanwhile.
  void hasNotificationActiveIs(bool active) override;

  static constexpr std::string_view typeName = "Vm::MonitorSm";
  using Attributes = rt::AttributeTable<
      rt::Attribute<"monitorInput", &MonitorSm::monitorInput>,
      rt::Attribute<"monitorOutput", &MonitorSm::monitorOutput>,
      rt::Attribute<"monitorStatus", &MonitorSm::monitorStatus>,
      rt::Attribute<"monFd", &MonitorSm::monFd>,
      rt::Attribute<"timeoutClock", &MonitorSm::timeoutClock>,
      rt::Attribute<"helloMessage", &MonitorSm::helloMessage>,
      rt::Attribute<"isPendingRequest", &MonitorSm::isPendingRequest>,
      rt::Attribute<"qmpPendingRequest", &MonitorSm::qmpPendingRequest>,
      rt::CollectionAttribute<"qmpRequest", &MonitorSm::qmpRequest, &MonitorSm::qmpRequestQueue,
                              &MonitorSm::qmpRequestIs, &MonitorSm::qmpRequestDel>,
      rt::Attribute<"qmpParserRequest", &MonitorSm::qmpParserRequest>,
      rt::Attribute<"qmpParserResponse", &MonitorSm::qmpParserResponse>,
      rt::Attribute<"qmpParser", &MonitorSm::qmpParser>,
      rt::Attribute<"initialized", &MonitorSm::initialized>,
      rt::Attribute<"qmpNotHeardFor", &MonitorSm::qmpNotHeardFor, &MonitorSm::qmpNotHeardForIs>,
      rt::Attribute<"timeoutInterval", &MonitorSm::timeoutInterval>>;

 private:
  // Commands become requests (MonitorSm.cpp).
  void handleInitialized();
  void handleHelloMessage();
  void issueToSelf(MonitorCommand cmd);
  void sendCommand();
  void queueRequests();
  void dropRequestsOf(uint32_t cmdId);
  void sendBackendAdd(const MonitorCommandArgs& args);
  void sendBackendDel(const MonitorCommandArgs& args);
  void qmpQueueRequest(const rt::String& text, QmpIdTypes idType, uint32_t fd, bool more);
  void checkAndSendRequest();
  // Replies and time-outs (MonitorSm.cpp).
  void handleQmpResponse(const rt::String& text);
  void handleParserResult();
  void handleTimeout();
  // The socket (MonitorSocket.cpp).
  void doIssueQmpRequest(const rt::String& text, uint32_t fd);
  void handleMonFdReadable();
  void handlePeerClosed();

  void helloMessageIs(bool received) { assign<&MonitorSm::helloMessage>(helloMessage_, received); }
  void isPendingRequestIs(bool pending) {
    assign<&MonitorSm::isPendingRequest>(isPendingRequest_, pending);
  }
  void qmpPendingRequestIs(const QmpRequestType& request) {
    assign<&MonitorSm::qmpPendingRequest>(qmpPendingRequest_, request);
  }

  const MonitorOutput::Ptr monitorOutput_;
  const MonitorStatus::Ptr monitorStatus_;
  bool helloMessage_ = false;
  bool isPendingRequest_ = false;
  QmpRequestType qmpPendingRequest_;
  rt::OrderedQueue<QmpRequestType> qmpRequest_;
  QmpParserRequest::Ptr qmpParserRequest_;
  QmpParserSm::Ptr qmpParser_;
  uint32_t qmpNotHeardFor_ = 0;
  rt::Seconds timeoutInterval_;

  rt::Reactor<MonitorSm, MonitorInput, rt::On<&MonitorInput::counter, &MonitorSm::sendCommand>>
      monitorInput_;
  rt::Reactor<MonitorSm, rt::FileDescriptor,
              rt::On<&rt::FileDescriptor::readable, &MonitorSm::handleMonFdReadable>>
      monFd_;
  rt::ClockReactor<MonitorSm, &MonitorSm::handleTimeout> timeoutClock_;
  rt::Reactor<MonitorSm, QmpParserResponse,
              rt::On<&QmpParserResponse::counter, &MonitorSm::handleParserResult>>
      qmpParserResponseInput_;
};

}  // namespace Vm
