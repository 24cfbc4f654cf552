#include "ctl/view/MetricsText.h"

#include <array>
#include <functional>

#include "model/EndCounts.h"
#include "runtime/base/Format.h"
#include "runtime/base/Text.h"
#include "runtime/base/VisibleText.h"

namespace ctl {

namespace {

using Number = std::optional<uint64_t>;

constexpr std::array states{"unknown", "stopping", "hung",    "crashed",  "paused",
                            "running", "starting", "refused", "retrying", "stopped"};

class Writer {
 public:
  enum class Type : bool { gauge, counter };

  // All values that follow are its.
  void family(const char* name, Type type, const char* help) {
    name_ = rt::String("vmagent_") + name;
    text_ += "# HELP " + name_ + " " + help + "\n# TYPE " + name_ +
             (type == Type::counter ? " counter\n" : " gauge\n");
  }
  // `labels`: such as label("vm", ...), with commas between.
  void value(const rt::String& labels, const rt::String& number) {
    text_ += name_ + (labels.empty() ? rt::String() : "{" + labels + "}") + " " + number + "\n";
  }
  void value(const rt::String& labels, Number number) {
    if (number) value(labels, rt::toText(*number));
  }
  rt::String take() { return std::move(text_); }

 private:
  rt::String name_;
  rt::String text_;
};

using Type = Writer::Type;

rt::String label(const char* name, const rt::String& value) {
  return rt::String(name) + "=" + labelValue(value);
}

// Of microseconds.
rt::String secondsText(uint64_t microseconds) {
  return rt::format("%.6f", static_cast<double>(microseconds) / 1e6);
}

Number known(uint64_t number) { return number == 0 ? Number() : Number(number); }

class Metrics {
 public:
  explicit Metrics(const MetricsFacts& facts) : facts_(facts) {}

  rt::String text() {
    ofTheDaemon();
    ofWishes();
    ofStates();
    ofEnds();
    ofRuns();
    ofLoad();
    ofDisks();
    ofCards();
    return out_.take();
  }

 private:
  using OfVm = std::function<Number(const VmRow& vm)>;
  using OfGuest = std::function<Number(const GuestFacts& guest)>;

  void perVm(const char* name, Type type, const char* help, const OfVm& number) {
    out_.family(name, type, help);
    for (const VmRow& vm : facts_.vms) out_.value(label("vm", vm.name), number(vm));
  }
  void perGuest(const char* name, Type type, const char* help, const OfGuest& number) {
    out_.family(name, type, help);
    for (const auto& [vm, guest] : facts_.guests) out_.value(label("vm", vm), number(guest));
  }
  void secondsPerGuest(const char* name, const char* help,
                       std::optional<uint64_t> GuestCounters::*member) {
    out_.family(name, Type::counter, help);
    for (const auto& [vm, guest] : facts_.guests)
      if (const auto count = guest.counters.*member)
        out_.value(label("vm", vm), secondsText(*count));
  }
  void perDisks(const char* name, const char* help, uint64_t DiskCounters::*member) {
    perGuest(name, Type::counter, help, [&](const GuestFacts& guest) {
      return guest.counters.disk ? Number((*guest.counters.disk).*member) : Number();
    });
  }
  using OfCard = std::function<void(const rt::String& labels, const GuestFacts::Card& card,
                                    const CardFacts& facts)>;
  void perCard(const char* name, Type type, const char* help, const OfCard& tell) {
    out_.family(name, type, help);
    for (const auto& [vm, guest] : facts_.guests)
      for (size_t i = 0; i < guest.cards.size() && i < guest.counters.cards.size(); ++i)
        tell(label("vm", vm) + "," + label("card", guest.cards[i].key), guest.cards[i],
             guest.counters.cards[i]);
  }
  void countsPerCard(const char* name, const char* help, uint64_t CardCounters::*member) {
    perCard(name, Type::counter, help,
            [&](const rt::String& labels, const GuestFacts::Card&, const CardFacts& facts) {
              if (facts.counters) out_.value(labels, Number((*facts.counters).*member));
            });
  }

  bool runs(const VmRow& vm) const {
    if (facts_.daemonRuns) return vm.process->actual() == "running";
    return facts_.guests.contains(vm.name);
  }
  // Without a daemon, what it said last may not be so.
  rt::String stateOf(const VmRow& vm) const {
    const rt::String& actual = vm.process->actual();
    return facts_.daemonRuns && !actual.empty() ? actual : rt::String("unknown");
  }

  void ofTheDaemon();
  void ofWishes();
  void ofStates();
  void ofEnds();
  void ofRuns();
  void ofLoad();
  void ofDisks();
  void ofCards();

  const MetricsFacts& facts_;
  Writer out_;
};

void Metrics::ofTheDaemon() {
  const model::DaemonStatus* const daemon = facts_.daemon ? &*facts_.daemon : nullptr;
  out_.family("build_info", Type::gauge, "Versions of vmctl and of vmagentd; always 1.");
  out_.value(label("version", facts_.version) + "," +
                 label("daemon_version", daemon ? daemon->version() : rt::String()),
             Number(1));
  out_.family("up", Type::gauge, "Whether vmagentd runs.");
  out_.value("", Number(facts_.daemonRuns ? 1 : 0));
  if (!daemon) return;
  out_.family("start_time_seconds", Type::gauge, "When vmagentd began, since 1970.");
  out_.value("", known(daemon->startedAt()));
  out_.family("events_dropped_total", Type::counter, "Events that are not kept any more.");
  out_.value(label("source", "daemon"), Number(daemon->eventsDropped()));
  out_.family("guests_memory_limit_bytes", Type::gauge,
              "Memory that all guests may have together.");
  out_.value("", known(daemon->memoryCap() << 20U));
  out_.family("guests_memory_given_bytes", Type::gauge, "Memory that is given to guests.");
  out_.value("", Number(daemon->memoryGiven() << 20U));
}

void Metrics::ofWishes() {
  out_.family("vm_info", Type::gauge, "Which QEMU it runs on; always 1.");
  for (const VmRow& vm : facts_.vms)
    out_.value(label("vm", vm.name) + "," + label("qemu_version", vm.process->qemuVersion()),
               Number(1));
  perVm("vm_wanted", Type::gauge, "Whether it is to run.",
        [](const VmRow& vm) { return Number(vm.isEnabled() ? 1 : 0); });
  perVm("vm_up", Type::gauge, "Whether its guest runs.",
        [&](const VmRow& vm) { return Number(runs(vm) ? 1 : 0); });
}

void Metrics::ofStates() {
  out_.family("vm_state", Type::gauge, "Whether it is in that state; one is 1.");
  for (const VmRow& vm : facts_.vms)
    for (const char* const state : states)
      out_.value(label("vm", vm.name) + "," + label("state", state),
                 Number(stateOf(vm) == state ? 1 : 0));
  perVm("vm_state_since_timestamp_seconds", Type::gauge, "Since when, since 1970.",
        [](const VmRow& vm) { return known(vm.process->since()); });
  out_.family("vm_problem", Type::gauge, "There is that wrong with it; always 1.");
  for (const VmRow& vm : facts_.vms)
    if (vm.process->severity() == "bad" && !vm.process->reason().empty())
      out_.value(label("vm", vm.name) + "," + label("reason", vm.process->reason()), Number(1));
  perVm("vm_restart_needed", Type::gauge, "Whether a change waits for its next start.",
        [](const VmRow& vm) {
          return Number(vm.problem && vm.problem->source() == "restart" ? 1 : 0);
        });
}

void Metrics::ofEnds() {
  perVm("vm_starts_total", Type::counter, "How often its QEMU was started.",
        [](const VmRow& vm) { return Number(vm.process->starts()); });
  out_.family("vm_ends_total", Type::counter, "How often its run has ended, and why.");
  for (const VmRow& vm : facts_.vms) {
    // From 0 on, so that the first is seen as one more.
    model::EndCounts counts = model::endCountsFrom(vm.process->ends());
    for (const char* const cause : model::endCauses) counts.try_emplace(cause, 0);
    for (const auto& [cause, count] : counts)
      out_.value(label("vm", vm.name) + "," + label("cause", cause), Number(count));
  }
}

void Metrics::ofRuns() {
  out_.family("vm_last_end_timestamp_seconds", Type::gauge,
              "When its last run ended, since 1970, and why.");
  for (const VmRow& vm : facts_.vms)
    if (!vm.process->endCause().empty())
      out_.value(label("vm", vm.name) + "," + label("cause", vm.process->endCause()),
                 known(vm.process->endAt()));
  perVm("vm_attempt", Type::gauge, "How often its start was tried again since it ran last.",
        [](const VmRow& vm) { return Number(vm.process->attempt()); });
  perVm("vm_next_start_timestamp_seconds", Type::gauge, "When it is started again, since 1970.",
        [](const VmRow& vm) {
          return vm.process->actual() == "retrying" ? known(vm.process->nextAt()) : Number();
        });
  perVm("vm_start_time_seconds", Type::gauge, "When its guest was started, since 1970.",
        [](const VmRow& vm) { return known(vm.process->startedAt()); });
  perVm("vm_guest_resets_total", Type::counter, "How often its guest was reset since its start.",
        [](const VmRow& vm) { return Number(vm.process->resets()); });
}

void Metrics::ofLoad() {
  secondsPerGuest("vm_cpu_seconds_total", "Time of processors that it took.", &GuestCounters::cpu);
  secondsPerGuest("vm_cpu_throttled_seconds_total", "Time that it was held back by cpuMax.",
                  &GuestCounters::cpuThrottled);
  perGuest("vm_memory_bytes", Type::gauge, "Memory that QEMU has.",
           [](const GuestFacts& guest) { return guest.counters.memory; });
  perGuest("vm_memory_limit_bytes", Type::gauge, "Memory that QEMU may have.",
           [](const GuestFacts& guest) { return guest.counters.memoryMax; });
  perGuest("vm_memory_configured_bytes", Type::gauge, "Memory that its guest is given.",
           [](const GuestFacts& guest) { return known(guest.memory << 20U); });
}

void Metrics::ofDisks() {
  perDisks("vm_disk_read_bytes_total", "Bytes read from the machine's disks for it.",
           &DiskCounters::readBytes);
  perDisks("vm_disk_written_bytes_total", "Bytes written to the machine's disks for it.",
           &DiskCounters::writtenBytes);
  perDisks("vm_disk_reads_total", "Reads from the machine's disks for it.", &DiskCounters::reads);
  perDisks("vm_disk_writes_total", "Writes to the machine's disks for it.", &DiskCounters::writes);
}

void Metrics::ofCards() {
  out_.family("card_info", Type::gauge, "Where a card is; always 1.");
  for (const auto& [vm, guest] : facts_.guests)
    for (const GuestFacts::Card& card : guest.cards)
      out_.value(label("vm", vm) + "," + label("card", card.key) + "," +
                     label("interface", card.interface) + "," + label("mac", card.address),
                 Number(1));
  perCard("card_carrier", Type::gauge, "Whether its device has a carrier.",
          [&](const rt::String& labels, const GuestFacts::Card&, const CardFacts& facts) {
            out_.value(labels, Number(facts.carrier.value_or(false) ? 1 : 0));
          });
  countsPerCard("card_receive_bytes_total", "Bytes that the guest received.",
                &CardCounters::receivedBytes);
  countsPerCard("card_receive_packets_total", "Packets that the guest received.",
                &CardCounters::receivedPackets);
  countsPerCard("card_receive_drops_total", "Packets that the guest was too slow for.",
                &CardCounters::receivedDrops);
  countsPerCard("card_transmit_bytes_total", "Bytes that the guest sent.",
                &CardCounters::sentBytes);
  countsPerCard("card_transmit_packets_total", "Packets that the guest sent.",
                &CardCounters::sentPackets);
  countsPerCard("card_transmit_drops_total", "Packets of the guest's that could not be sent.",
                &CardCounters::sentDrops);
}

}  // namespace

rt::String labelValue(std::string_view text) {
  rt::String value = "\"";
  while (!text.empty()) {
    const size_t length = rt::characterLength(text);
    if (length == 0)
      value += "\xef\xbf\xbd";
    else if (text[0] == '\n')
      value += "\\n";
    else if (text[0] == '\\' || text[0] == '"')
      (value += '\\') += text[0];
    else
      value += text.substr(0, length);
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return value += '"';
}

rt::String metricsText(const MetricsFacts& facts) { return Metrics(facts).text(); }

}  // namespace ctl
