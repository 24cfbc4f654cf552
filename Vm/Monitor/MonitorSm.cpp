#include "Vm/Monitor/MonitorSm.h"

#include <vector>

#include "runtime/base/Check.h"
#include "runtime/base/Format.h"
#include "runtime/base/Trace.h"

namespace Vm {

namespace {

constexpr rt::Seconds replyTimeout{5.0};
// Far beyond what any guest needs: a queue that long has a bug behind it.
constexpr uint32_t queueCapacity = 65'536;

using CommandStatus = MonitorOutput::MonitorCommandStatus;

// Arguments stand in requests as they are; whoever issues a command checks them.
rt::String setLinkText(const rt::String& name, const char* up) {
  return rt::format(
      "{ \"execute\": \"set_link\",\"arguments\": {\"name\": \"%s\",\"up\": %s},"
      "\"id\": \"setlink\" }\n",
      name.charPtr(), up);
}

}  // namespace

MonitorSm::MonitorSm(MonitorInput::Ptr monitorInput, MonitorOutput::Ptr monitorOutput,
                     MonitorStatus::Ptr monitorStatus, rt::FileDescriptor::Ptr monFd,
                     rt::Clock::Ptr timeoutClock)
    : monitorOutput_(std::move(monitorOutput)),
      monitorStatus_(std::move(monitorStatus)),
      qmpRequest_("Vm::MonitorSm::qmpRequest", queueCapacity),
      monitorInput_(*this, std::move(monitorInput)),
      monFd_(*this, std::move(monFd)),
      timeoutClock_(*this, std::move(timeoutClock)),
      qmpParserResponseInput_(*this) {
  handleInitialized();
}

void MonitorSm::handleRemoval() {
  StateMachineOf::handleRemoval();
  qmpRequestDelAll();
}

void MonitorSm::hasNotificationActiveIs(bool active) {
  StateMachineOf::hasNotificationActiveIs(active);
  if (monFd()) monFd()->hasNotificationActiveIs(active);
}

void MonitorSm::handleInitialized() {
  VM_TRACE(8) << "void Vm::MonitorSm::handleInitialized()"
              << " initialized ? " << initialized();
  if (initialized()) return;
  initializedIs(true);
  qmpParserRequest_ = rt::make<QmpParserRequest>();
  qmpParserResponseInput_.notifierIs(rt::make<QmpParserResponse>());
  qmpParser_ = rt::make<QmpParserSm>(qmpParserRequest_, qmpParserResponse());
  issueToSelf(MonitorCommand::enterCmdMode);
}

void MonitorSm::handleHelloMessage() {
  VM_TRACE(8) << "helloMessage: " << helloMessage();
  helloMessageIs(true);
  checkAndSendRequest();
  issueToSelf(MonitorCommand::queryStatus);
  issueToSelf(MonitorCommand::queryChardev);
}

void MonitorSm::issueToSelf(MonitorCommand cmd) {
  monitorInput()->cmdIs(cmd);
  monitorInput()->counterInc(1);
}

void MonitorSm::sendCommand() {
  if (!monitorInput() || monitorInput()->counter() == 0) return;
  try {
    queueRequests();
  } catch (...) {
    // A part of a command must not stay: its end is what its time-out looks for.
    dropRequestsOf(monitorInput()->counter());
    throw;
  }
}

void MonitorSm::dropRequestsOf(uint32_t cmdId) {
  std::vector<uint32_t> indexes;
  for (const auto& [index, request] : qmpRequest_)
    if (request.cmdId == cmdId) indexes.push_back(index);
  for (const uint32_t index : indexes) qmpRequestDel(index);
}

void MonitorSm::queueRequests() {
  const MonitorCommand cmd = monitorInput()->cmd();
  VM_TRACE(8) << "void Vm::MonitorSm::sendCommand()"
              << " command: " << cmd;
  const MonitorCommandArgs::PtrConst given = monitorInput()->cmdArgs();
  const MonitorCommandArgs::PtrConst args = given ? given : rt::make<MonitorCommandArgs>();
  for (const auto& [name, arg] : args->args()) VM_TRACE(8) << "arg[" << name << "] " << arg;

  constexpr uint32_t noFd = QmpRequestType::noFd;
  switch (cmd) {
    case MonitorCommand::enterCmdMode:
      qmpQueueRequest("{ \"execute\": \"qmp_capabilities\",\"id\": \"enter\" }\n",
                      QmpIdTypes::enter, noFd, false);
      return;
    case MonitorCommand::queryStatus:
      qmpQueueRequest("{ \"execute\": \"query-status\",\"id\": \"status\" }\n", QmpIdTypes::status,
                      noFd, false);
      return;
    case MonitorCommand::startVm:
      qmpQueueRequest("{ \"execute\": \"cont\",\"id\": \"cont\" }\n", QmpIdTypes::cont, noFd,
                      false);
      return;
    case MonitorCommand::queryChardev:
      qmpQueueRequest("{ \"execute\": \"query-chardev\",\"id\": \"chardev\" }\n",
                      QmpIdTypes::chardev, noFd, false);
      return;
    case MonitorCommand::backendAdd:
      return sendBackendAdd(*args);
    case MonitorCommand::backendDel:
      return sendBackendDel(*args);
  }
  VM_TRACE(1) << "sendCommand"
              << " FAIL: unknown monitor command: " << cmd;
}

void MonitorSm::sendBackendAdd(const MonitorCommandArgs& args) {
  const rt::String fdname = args.arg("fdname").strVal;
  const rt::String backendId = args.arg("backendId").strVal;
  const rt::String nicId = args.arg("nicId").strVal;
  qmpQueueRequest(rt::format("{ \"execute\": \"getfd\",\"arguments\": {\"fdname\": \"%s\"},"
                             "\"id\": \"getfd\" }\n",
                             fdname.charPtr()),
                  QmpIdTypes::getfd, args.arg("fd").u32Val, true);
  // Its "fd" is the name given to getfd, not a number.
  qmpQueueRequest(
      rt::format("{ \"execute\": \"netdev_add\",\"arguments\": {\"type\": \"tap\",\"fd\": \"%s\","
                 "\"id\": \"%s\"},\"id\": \"netdev\" }\n",
                 fdname.charPtr(), backendId.charPtr()),
      QmpIdTypes::netdev, QmpRequestType::noFd, true);
  qmpQueueRequest(rt::format("{ \"execute\": \"netdev_set\",\"arguments\": {\"nicid\": \"%s\","
                             "\"netdevid\": \"%s\"},\"id\": \"netdev\" }\n",
                             nicId.charPtr(), backendId.charPtr()),
                  QmpIdTypes::netdev, QmpRequestType::noFd, true);
  qmpQueueRequest(setLinkText(backendId, "true"), QmpIdTypes::setlink, QmpRequestType::noFd, false);
}

void MonitorSm::sendBackendDel(const MonitorCommandArgs& args) {
  const rt::String fdname = args.arg("fdname").strVal;
  const rt::String backendId = args.arg("backendId").strVal;
  qmpQueueRequest(setLinkText(backendId, "false"), QmpIdTypes::setlink, QmpRequestType::noFd, true);
  qmpQueueRequest(rt::format("{ \"execute\": \"closefd\",\"arguments\": {\"fdname\": \"%s\"},"
                             "\"id\": \"closefd\" }\n",
                             fdname.charPtr()),
                  QmpIdTypes::closefd, QmpRequestType::noFd, true);
  qmpQueueRequest(rt::format("{ \"execute\": \"netdev_del\",\"arguments\": {\"id\": \"%s\"},"
                             "\"id\": \"netdev\" }\n",
                             backendId.charPtr()),
                  QmpIdTypes::netdev, QmpRequestType::noFd, false);
}

void MonitorSm::qmpQueueRequest(const rt::String& text, QmpIdTypes idType, uint32_t fd, bool more) {
  VM_TRACE(8) << "void Vm::MonitorSm::qmpQueueRequest(const String&, QmpIdTypes, uint32_t, bool)"
              << " req: " << text << " id: " << idType << " fd: " << static_cast<int32_t>(fd)
              << " more: " << more;
  qmpRequestEnq({monitorInput()->cmd(), monitorInput()->counter(), text, idType, fd, more});
  checkAndSendRequest();
}

void MonitorSm::checkAndSendRequest() {
  VM_TRACE(8) << "void Vm::MonitorSm::checkAndSendRequest()"
              << " isPendingRequest: " << isPendingRequest()
              << " number of queued requests: " << qmpRequests();
  if (!helloMessage() || isPendingRequest() || qmpRequests() == 0) return;
  qmpPendingRequestIs(qmpRequestDeq());
  doIssueQmpRequest(qmpPendingRequest().val, qmpPendingRequest().fd);
  timeoutClock_.timeMinIs(timeoutClock()->now() + replyTimeout);
  isPendingRequestIs(true);
}

void MonitorSm::handleQmpResponse(const rt::String& text) {
  VM_TRACE(8) << "void Vm::MonitorSm::handleQmpResponse(const String&)";
  qmpParserRequest()->inputStringIs(text);
  qmpParserRequest()->counterInc(1);
}

void MonitorSm::handleParserResult() {
  const QmpParserResponse::Ptr r = qmpParserResponse();
  if (!r || r->counter() == 0) return;
  VM_TRACE(8) << "void Vm::MonitorSm::handleParserResult()"
              << " id1: " << r->qmpIdType() << " id2: " << qmpPendingRequest().id
              << " cmd: " << qmpPendingRequest().cmd << " val: " << r->val();
  if (r->qmpType() == QmpTypes::qmpTypeQmp) {
    VM_TRACE(8) << "handleParserResult"
                << ": hello message received from monitor ";
    return handleHelloMessage();
  }
  if (r->qmpIdType() != qmpPendingRequest().id) return;
  // An error completes its request like a return, but publishes nothing, whichever request of its
  // command it answers.
  if (r->qmpType() == QmpTypes::qmpTypeReturn && !qmpPendingRequest().more) {
    if (r->qmpIdType() == QmpIdTypes::enter) {
      monitorStatus_->stateIs(MonitorStatus::MonitorState::connected);
    } else {
      monitorOutput_->cmdIs(qmpPendingRequest().cmd);
      monitorOutput_->cmdStatusIs(CommandStatus::success);
      monitorOutput_->valIs(r->val());
      monitorOutput_->cmdIdIs(qmpPendingRequest().cmdId);
      monitorOutput_->counterInc(1);
    }
  }
  isPendingRequestIs(false);
  checkAndSendRequest();
}

void MonitorSm::handleTimeout() {
  if (!isPendingRequest()) return;
  VM_TRACE(8) << "handleTimeout"
              << " FAIL: QMP message timed out " << qmpPendingRequest();
  bool more = qmpPendingRequest().more;
  while (more) {
    rt::check(qmpRequests() != 0, "qmpRequests() != 0");
    more = qmpRequestDeq().more;
  }
  // `cmd` and `cmdId` stay those of the result before.
  monitorOutput_->cmdStatusIs(CommandStatus::failure);
  monitorOutput_->valIs({});
  monitorOutput_->counterInc(1);
  isPendingRequestIs(false);
  checkAndSendRequest();
}

void MonitorSm::qmpRequestEnq(const QmpRequestType& request) {
  const uint32_t index = qmpRequest_.enq(request);
  tell<&MonitorSm::qmpRequest>(&index);
}

MonitorSm::QmpRequestType MonitorSm::qmpRequestDeq() {
  const uint32_t index = qmpRequest_.frontIndex();
  if (qmpRequests() == 0) return {};
  QmpRequestType request = qmpRequest_.deq();
  tell<&MonitorSm::qmpRequest>(&index);
  return request;
}

void MonitorSm::qmpRequestIs(uint32_t index, const QmpRequestType& request) {
  const QmpRequestType* const old = qmpRequest_.find(index);
  if (old && *old == request) return;
  qmpRequest_.store(index, request);
  tell<&MonitorSm::qmpRequest>(&index);
}

void MonitorSm::qmpRequestDel(uint32_t index) {
  if (qmpRequest_.remove(index)) tell<&MonitorSm::qmpRequest>(&index);
}

void MonitorSm::qmpRequestDelAll() {
  while (qmpRequests() != 0) qmpRequestDeq();
}

}  // namespace Vm
