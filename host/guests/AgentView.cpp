#include "host/guests/AgentView.h"

#include <fcntl.h>

#include <cerrno>

#include "runtime/base/Check.h"
#include "runtime/base/Exception.h"
#include "runtime/base/Text.h"

namespace host {

namespace {

constexpr const char* noDescriptor = "4294967295";

const rt::AttributeInfo& attributeOf(const rt::Entity& entity, std::string_view name) {
  const rt::AttributeInfo* const found = entity.type().find(name);
  rt::check(found != nullptr, "the module is of this version");
  return *found;
}

rt::Ptr<rt::Entity> entityOf(const rt::Entity& entity, std::string_view name) {
  return attributeOf(entity, name).entity(entity);
}

rt::Ptr<rt::Entity> vmSet(const rt::Entity& root) {
  const auto agent = entityOf(root, "agent");
  return agent ? entityOf(*agent, "vmSm") : nullptr;
}

Card cardOf(const rt::Ptr<rt::Entity>& record) {
  return {
      .record = record,
      .interface = attributeText(*record, "backendDev"),
      .mac = rt::EthAddr::fromText(attributeText(*record, "macAddr").str()).value_or(rt::EthAddr()),
      .tap = attributeText(*record, "macvtapDev"),
      .status = attributeText(*record, "status"),
      .hasDescriptor = attributeText(*record, "macvtapFd") != noDescriptor};
}

}  // namespace

rt::Ptr<rt::Entity> vmMachine(const rt::Entity& root, const rt::String& vm) {
  const auto machines = vmSet(root);
  return machines ? attributeOf(*machines, "vmConfigSm").member(*machines, vm) : nullptr;
}

rt::Ptr<rt::Entity> processOf(const rt::Entity& machine) {
  return entityOf(machine, "qemuChildProcess");
}

bool isAlive(const rt::Entity& process) {
  return attributeText(process, "status") == "none" && pidOf(process) > 0;
}

int32_t pidOf(const rt::Entity& process) {
  return rt::fromText<int32_t>(attributeText(process, "pid")).value_or(0);
}

int32_t endSignalOf(const rt::Entity& process) {
  return rt::fromText<int32_t>(attributeText(process, "exitSignal")).value_or(0);
}

int32_t exitStatusOf(const rt::Entity& process) {
  return rt::fromText<int32_t>(attributeText(process, "exitStatus")).value_or(0);
}

Session sessionOf(const rt::Entity& machine) {
  return {.input = entityOf(machine, "monitorInput"),
          .status = entityOf(machine, "monitorStatus"),
          .output = entityOf(machine, "monitorOutput")};
}

bool isConnected(const Session& session) {
  return session.input && session.status && attributeText(*session.status, "state") == "connected";
}

uint32_t commandsOf(const Session& session) {
  return rt::fromText<uint32_t>(attributeText(*session.input, "counter")).value_or(0);
}

uint32_t lastAnswered(const Session& session) {
  if (!session.output) return 0;
  return rt::fromText<uint32_t>(attributeText(*session.output, "cmdId")).value_or(0);
}

void askForState(const Session& session) {
  attributeTextIs(*session.input, "cmd", "queryStatus");
  attributeTextIs(*session.input, "counter", rt::toText(commandsOf(session) + 1));
}

void connectAgain(const Session& session) {
  for (const char* const state : {"uninitialized", "connected"})
    attributeTextIs(*session.status, "state", state);
}

std::vector<Card> cards(const rt::Entity& root) {
  std::vector<Card> all;
  const auto machines = vmSet(root);
  if (!machines) return all;
  const auto& set = attributeOf(*machines, "vmConfigSm");
  for (const rt::String& vm : set.keys(*machines)) {
    const auto own = cardsOf(*set.member(*machines, vm));
    all.insert(all.end(), own.begin(), own.end());
  }
  return all;
}

std::vector<Card> cardsOf(const rt::Entity& machine) {
  std::vector<Card> own;
  const auto& vnics = attributeOf(machine, "vnic");
  for (const rt::String& id : vnics.keys(machine)) own.push_back(cardOf(vnics.member(machine, id)));
  return own;
}

void forgetTap(const Card& card) { attributeTextIs(*card.record, "macvtapDev", ""); }

void interfaceIs(const Card& card, const rt::String& interface) {
  attributeTextIs(*card.record, "backendDev", interface.str());
}

void statusIs(const Card& card, std::string_view status) {
  attributeTextIs(*card.record, "status", status);
}

// The agent closes the descriptor of a card that it gives up, so it must have one.
void makeAttached(const Card& card) {
  if (!card.hasDescriptor) {
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (nothing < 0) throw rt::ErrnoException(errno, "/dev/null cannot be opened");
    attributeTextIs(*card.record, "macvtapFd", rt::toText(nothing).str());
  }
  attributeTextIs(*card.record, "linkDownPending", "false");
  statusIs(card, "linkUp");
}

bool isSettled(const rt::Entity& machine) {
  const auto monitor = entityOf(machine, "monSm");
  return monitor && isConnected(sessionOf(machine)) &&
         attributeText(*monitor, "isPendingRequest") == "false" &&
         attributeOf(*monitor, "qmpRequest").keys(*monitor).empty();
}

}  // namespace host
