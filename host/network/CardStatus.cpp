#include "host/network/CardStatus.h"

#include <algorithm>
#include <utility>

namespace host {

namespace {

namespace link = model::link;

rt::String rowOf(const rt::String& vm, const rt::String& card) { return vm + "/" + card; }

// The word for a card that has no line; empty: it has one, or will have.
rt::String troubleOf(std::string_view word) {
  if (word == link::gone) return "gone";
  return word == link::noCarrier ? "no-carrier" : "";
}

rt::String sentenceOf(const rt::String& card, const rt::String& interface, std::string_view word) {
  if (word == link::gone) return card + ": there is no " + interface;
  return card + ": " + interface + (word == link::noCarrier ? " has no carrier" : " is back");
}

}  // namespace

CardStatus::CardStatus(Tools tools, std::map<rt::String, Before> before, rt::Clock::Ptr clock)
    : tools_(std::move(tools)), before_(std::move(before)), clock_(*this, std::move(clock)) {
  handleInitialized();
}

void CardStatus::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
}

void CardStatus::changed(const rt::String& vm) {
  due_.insert(vm);
  tools_.cards.changed(vm);
}

void CardStatus::switchedOff(const rt::String& vm) {
  due_.insert(vm);
  tools_.cards.switchedOff(vm);
}

void CardStatus::interfaceIs(const rt::String& id) {
  for (const auto& [vm, guest] : guests_)
    if (std::any_of(guest.cards.begin(), guest.cards.end(),
                    [&](const auto& card) { return card.second.interface == id; }))
      due_.insert(vm);
}

void CardStatus::handleClock() {
  const rt::Seconds now = clock_.notifier()->now();
  for (auto& [vm, guest] : guests_)
    if (guest.tellAt <= now) due_.insert(vm);
}

void CardStatus::handleProcess(const rt::Entity& process, const rt::Change& /*change*/) {
  for (const auto& [vm, guest] : guests_)
    if (guest.process.notifier().get() == &process) due_.insert(vm);
}

void CardStatus::pass() {
  if (due_.empty()) return;
  for (const rt::String& vm : std::exchange(due_, {})) look(vm);
  setClock();
}

void CardStatus::look(const rt::String& vm) {
  const auto machine = vmMachine(*tools_.agent, vm);
  const auto process = machine ? processOf(*machine) : nullptr;
  if (!process || !isAlive(*process)) return forget(vm);
  Guest& guest = guests_.try_emplace(vm, *this).first->second;
  if (guest.process.notifier() != process) guest.process.notifierIs(process);
  const bool isAnother = std::exchange(guest.pid, pidOf(*process)) != guest.pid;
  const std::vector<Card> cards = cardsOf(*machine);
  forgetCards(vm, guest, cards);
  for (const Card& card : cards) {
    Seen& seen = seenOf(vm, guest, card);
    if (isAnother) seen.line.reset();
    show(vm, card, seen);
    tellChange(vm, seen);
  }
  showTrouble(vm, guest);
  tellShim(vm, guest, cards);
}

// As its row calls it when it is seen first: later that may have another address.
CardStatus::Seen& CardStatus::seenOf(const rt::String& vm, Guest& guest, const Card& card) {
  const auto [at, isNew] = guest.cards.try_emplace(card.mac);
  Seen& seen = at->second;
  if (!isNew) return seen;
  seen.key = tools_.keyOf(vm, card.mac);
  if (seen.key.empty()) seen.key = card.mac.text();
  if (const auto before = before_.extract(rowOf(vm, seen.key))) {
    seen.before = before.mapped();
    seen.told = troubleOf(seen.before.link.str());
  }
  return seen;
}

void CardStatus::forget(const rt::String& vm) {
  const auto found = guests_.find(vm);
  if (found == guests_.end()) return;
  forgetCards(vm, found->second, {});
  guests_.erase(found);
  tools_.problems.problemIs(vm, ProblemSource::line, {});
}

// Those that are none of the guest's any more.
void CardStatus::forgetCards(const rt::String& vm, Guest& guest, const std::vector<Card>& cards) {
  std::erase_if(guest.cards, [&](const auto& each) {
    const bool isThere = std::any_of(cards.begin(), cards.end(),
                                     [&](const Card& card) { return card.mac == each.first; });
    if (!isThere) tools_.status->vmCardDel(rowOf(vm, each.second.key));
    return !isThere;
  });
}

std::string_view CardStatus::linkOf(const Card& card) const {
  const auto interface = tools_.status->interfaceStatus(card.interface);
  if (!interface || !interface->present()) return link::gone;
  if (!interface->carrier()) return link::noCarrier;
  return card.status == "linkUp" ? link::up : link::none;
}

void CardStatus::show(const rt::String& vm, const Card& card, Seen& seen) {
  const std::string_view link = linkOf(card);
  seen.interface = card.interface;
  if (seen.link != link) {
    seen.link = link;
    // Of what was so already when the daemon came, the time is the earlier daemon's.
    seen.since = seen.before.link == link ? seen.before.since : tools_.now();
    // It may be attached anew before that is seen.
    if (link != link::none) seen.before = {};
  }
  const auto row = tools_.status->vmCardIs(rowOf(vm, seen.key));
  row->interfaceIs(seen.interface);
  row->tapIs(card.tap);
  row->linkIs(rt::String(seen.link));
  row->sinceIs(seen.since);
}

// That all is well is not known before it is attached.
void CardStatus::tellChange(const rt::String& vm, Seen& seen) {
  const rt::String trouble = troubleOf(seen.link);
  if (seen.link == link::none || seen.told == trouble) return;
  seen.told = trouble;
  const auto event = rt::make<model::Event>("");
  event->kindIs(model::eventKind::card);
  event->vmIs(vm);
  event->reasonIs(trouble.empty() ? rt::String("back") : trouble);
  event->severityIs(trouble.empty() ? "ok" : "bad");
  event->subjectIs(seen.key);
  event->textIs(sentenceOf(seen.key, seen.interface, seen.link));
  event->atIs(tools_.now() * 1000);
  tools_.tell(event);
}

// Of several, one whose interface is gone, and else the first by its key.
void CardStatus::showTrouble(const rt::String& vm, const Guest& guest) {
  const auto rankOf = [](const Seen& seen) {
    return std::pair(seen.link == link::gone ? 0 : 1, seen.key);
  };
  const Seen* worst = nullptr;
  for (const auto& [mac, seen] : guest.cards)
    if (!troubleOf(seen.link).empty() && (!worst || rankOf(seen) < rankOf(*worst))) worst = &seen;
  if (!worst) return tools_.problems.problemIs(vm, ProblemSource::line, {});
  tools_.trouble(vm, {.card = worst->key,
                      .interface = worst->interface,
                      .isGone = worst->link == link::gone,
                      .since = worst->since});
  tools_.problems.problemIs(vm, ProblemSource::line,
                            sentenceOf(worst->key, worst->interface, worst->link));
}

void CardStatus::tellShim(const rt::String& vm, Guest& guest, const std::vector<Card>& cards) {
  const bool follows = tools_.followsLink(vm);
  bool isToldAll = true;
  for (const Card& card : cards) {
    Seen& seen = guest.cards[card.mac];
    const bool isUp = !follows || troubleOf(seen.link).empty();
    if (seen.line == isUp) continue;
    if (tools_.shims.lineIs(vm, card.mac, isUp))
      seen.line = isUp;
    else
      isToldAll = false;
  }
  const rt::Seconds now = clock_.notifier()->now();
  if (isToldAll) {
    guest.tellAt = rt::Seconds::infinity();
    guest.delay = firstDelay;
  } else if (guest.tellAt <= now || guest.tellAt == rt::Seconds::infinity()) {
    guest.tellAt = now + guest.delay;
    guest.delay = std::min(guest.delay + guest.delay, longestDelay);
  }
}

void CardStatus::setClock() {
  rt::Seconds first = rt::Seconds::infinity();
  for (const auto& [vm, guest] : guests_) first = std::min(first, guest.tellAt);
  clock_.timeMinIs(first);
}

}  // namespace host
