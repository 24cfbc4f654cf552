#include "ctl/verbs/GuestSampler.h"

#include <algorithm>

#include "guest/VmFiles.h"
#include "model/Tables.h"

namespace ctl {

namespace {

// How many processors the machine has, by its file "stat": a line "cpu0 ..." for each.
double processorsIn(std::string_view stat) {
  constexpr std::string_view mark = "\ncpu";
  double count = 0;
  for (size_t at = 0; (at = stat.find(mark, at)) != std::string_view::npos; at += mark.size())
    ++count;
  return count;
}

}  // namespace

GuestFacts guestFactsOf(const VmRow& row) {
  const model::VmProcess& process = *row.process;
  GuestFacts guest{.name = row.name,
                   .actual = process.actual(),
                   .severity = process.severity(),
                   .pid = process.qemuPid(),
                   .startedAt = process.startedAt(),
                   .memory = row.config ? row.config->memory() : 0,
                   .cpuMax = row.own.records.limits->cpuMax(),
                   .cards = {},
                   .counters = {}};
  if (!row.config) return guest;
  for (const auto& [key, card] : row.config->vnicConfigs())
    guest.cards.push_back({key, card->intfName(), card->macAddr().text()});
  return guest;
}

GuestSampler::GuestSampler(Context& context, const std::vector<rt::String>& names)
    : context_(context),
      names_(names),
      config_{statedb::Half::config, model::table::vmConfig, {}},
      status_{statedb::Half::status, model::table::vmProcess, {}},
      reader_(context.world().machine),
      processors_(processorsIn(context.world().machine.text("/proc/stat").value_or(""))) {
  for (const rt::String& name : names) (void)presentVm(context, name);
}

Sample GuestSampler::take() {
  const bool isOther = hasChanged(config_);  // both are to be looked at
  if (hasChanged(status_) || isOther) readRows();
  Sample sample{context_.world().timeOfDayMs(), context_.world().now(), {}};
  reader_.lookAround(daemon_ ? daemon_->guestsGroup() : rt::String());
  // What the daemon says of a process is so, and what one said is looked at.
  const bool isStale = !context_.daemonRuns();
  for (const GuestFacts& known : guests_) {
    GuestCounterReader::Guest asked{known.name, known.pid, {}};
    for (const GuestFacts::Card& card : known.cards) asked.cards.push_back(card.address);
    GuestFacts guest = known;
    guest.counters = reader_.read(asked);
    if (guest.counters.isThere() || !isStale) sample.guests.push_back(std::move(guest));
  }
  return sample;
}

MachineShare GuestSampler::share() const {
  MachineShare share{processors_, 0};
  if (!daemon_) return share;
  share.memory = daemon_->memoryCap() << 20U;
  if (daemon_->guestsCpu() != model::Processors())
    share.processors =
        static_cast<double>(daemon_->guestsCpu().hundredths()) / model::Processors::parts;
  return share;
}

// The moment is from before the rows are read, so that nothing is missed.
bool GuestSampler::hasChanged(Moment& moment) {
  try {
    statedb::Store& store = context_.db().store(moment.half);
    if (moment.cursor) {
      const statedb::Changes changes = store.changes(*moment.cursor);
      if (changes.resume == statedb::Resume::resumed) {
        moment.cursor = changes.cursor;
        return !changes.changes.empty();
      }
    }
    moment.cursor = store.snapshot({moment.table}).cursor;
    return true;
  } catch (const statedb::Error& error) {
    if (error.trouble() != statedb::Trouble::missing) throw;
    moment.cursor.reset();
    return true;
  }
}

void GuestSampler::readRows() {
  daemon_ = daemonStatus(context_);
  guests_.clear();
  for (const VmRow& row : allVms(context_)) {
    if (row.process->process() == "none" || !isWished(row.name)) continue;
    guests_.push_back(guestFactsOf(row));
    if (guests_.back().pid == 0 && !hasShim(row.name)) guests_.back().pid = row.process->pid();
  }
}

bool GuestSampler::hasShim(const rt::String& name) const {
  const rt::String path = guest::fileOf(context_.directories().run, name, guest::shimSocket);
  return context_.world().machine.accessError(path, Machine::Access::exists) == 0;
}

bool GuestSampler::isWished(const rt::String& name) const {
  return names_.empty() || std::find(names_.begin(), names_.end(), name) != names_.end();
}

}  // namespace ctl
