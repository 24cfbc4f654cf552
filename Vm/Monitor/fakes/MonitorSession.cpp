#include "Vm/Monitor/fakes/MonitorSession.h"

namespace Vm::fakes {

void MonitorReader::handleResult() {
  const rt::String result = rt::toText(output_->cmd()) + " " + rt::toText(output_->cmdId()) + " " +
                            rt::toText(output_->cmdStatus()) + " " + output_->val();
  told_.push_back(result.str());
  if (onResult) onResult();
}

void MonitorReader::handleState() {
  told_.push_back(rt::toText(status_->state()).str());
  if (onState) onState();
}

MonitorCommandArgs::Ptr backendArgs(uint32_t fd, const char* fdname, const char* backendId,
                                    const char* nicId) {
  auto args = rt::make<MonitorCommandArgs>();
  if (fd != 0) args->argIs({"fd", fd, {}});
  for (const auto& [name, value] :
       {std::pair{"fdname", fdname}, {"backendId", backendId}, {"nicId", nicId}})
    if (value) args->argIs({name, 0, value});
  return args;
}

MonitorSession::MonitorSession() {
  descriptor->descriptorIs(peer.takeSessionEnd());
  descriptor->nonBlockingIs(true);
  descriptor->notifyOnReadableIs(true);
  session = rt::make<MonitorSm>(input, output, status, descriptor, clock);
}

void MonitorSession::hear(std::string_view bytes) {
  peer.send(bytes);
  turn();
}

uint32_t MonitorSession::issue(MonitorCommand cmd, const MonitorCommandArgs::PtrConst& args) {
  input->cmdIs(cmd);
  input->cmdArgsIs(args);
  input->counterInc(1);
  return input->counter();
}

void MonitorSession::destroy() {
  if (const MonitorSm::Ptr old = std::exchange(session, nullptr)) old->handleRemoval();
}

std::vector<std::string> MonitorSession::converse() {
  std::vector<std::string> all;
  for (auto requests = peer.answer(); !requests.empty(); requests = peer.answer()) {
    all.insert(all.end(), requests.begin(), requests.end());
    turn();
  }
  return all;
}

void MonitorSession::connect() {
  hear(greeting());
  converse();
  reader->take();
}

}  // namespace Vm::fakes
