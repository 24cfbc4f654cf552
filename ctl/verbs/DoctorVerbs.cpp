#include "ctl/verbs/DoctorVerbs.h"

#include <algorithm>

#include "ctl/line/Json.h"
#include "ctl/machine/Doctor.h"
#include "ctl/verbs/Budget.h"
#include "ctl/view/VmRows.h"
#include "model/Tables.h"

namespace ctl {

namespace {

const char* nameOf(Health health) {
  switch (health) {
    case Health::ok:
      return "ok";
    case Health::warning:
      return "warning";
    case Health::failed:
      break;
  }
  return "FAILED";
}

Ink inkOf(Health health) {
  switch (health) {
    case Health::ok:
      return Ink::good;
    case Health::warning:
      return Ink::busy;
    case Health::failed:
      break;
  }
  return Ink::bad;
}

// Each half is opened, which finds damage and an old format, and read.
Finding examineDatabase(Context& context) {
  try {
    for (const char* table : {model::table::vmConfig, model::table::vmStatus})
      (void)context.db().snapshot({table});
  } catch (const statedb::Error& error) {
    // Its sentences are "what is wrong: the way out"; of what nobody foresaw there is none.
    const std::string_view sentence = error.what();
    const size_t colon = sentence.find(": ");
    if (error.trouble() == statedb::Trouble::failed || colon == std::string_view::npos)
      return {Health::failed, "database", sentence, "restart vmagentd, and see what it says"};
    return {Health::failed, "database", sentence.substr(0, colon), sentence.substr(colon + 2)};
  }
  return {Health::ok, "database", "both halves open, and have the newest format", {}};
}

// Another file may have been mounted over the one that a daemon opened.
bool isOfAnotherFile(Context& context) {
  try {
    const auto daemon = daemonStatus(context);
    const rt::String store = daemon ? daemon->configStore() : rt::String();
    return !store.empty() &&
           store != context.db().store(statedb::Half::config).snapshot({}).cursor.storeId;
  } catch (const statedb::Error&) {
    return false;  // told by examineDatabase
  }
}

bool isBehind(Context& context) {
  try {
    const auto daemon = daemonStatus(context);
    const auto now = context.db().store(statedb::Half::config).snapshot({}).cursor;
    return daemon && daemon->configStore() == now.storeId &&
           daemon->configSequence() < now.sequence;
  } catch (const statedb::Error&) {
    return false;  // told by examineDatabase
  }
}

Finding examineDaemon(Context& context) {
  if (context.daemonRuns() && isOfAnotherFile(context))
    return {Health::failed, "vmagentd",
            "it goes by another config.db than is in " + context.directories().state + " now",
            "restart it: 'systemctl restart vmagentd'; guests go on meanwhile"};
  if (context.daemonRuns() && isBehind(context))
    return {
        Health::warning, "vmagentd",
        "it runs, and has not carried out the newest changes of config.db: it is busy, or stands "
        "still",
        "look again; if it stays so, 'systemctl restart vmagentd'; guests go on meanwhile"};
  if (context.daemonRuns()) return {Health::ok, "vmagentd", "it runs", {}};
  if (context.world().machine.accessError(context.directories().run, Machine::Access::execute) ==
      EACCES)
    return {Health::warning, "vmagentd", "whether it runs cannot be seen by you",
            "ask as root or as a member of the group vmagent"};
  return {Health::failed, "vmagentd", "it is not running",
          "start it: 'systemctl start vmagentd'; 'journalctl -u vmagentd' tells why it ended"};
}

std::vector<Finding> findingsOf(Context& context) {
  const Machine& machine = context.world().machine;
  const Directories& directories = context.directories();
  std::vector<Finding> findings{examineKvm(machine),
                                examineQemu(machine),
                                examineKernel(machine),
                                examineMacvtap(machine),
                                examineDevices(machine),
                                examineBox(machine),
                                examineShim(machine),
                                examineAgent(machine),
                                examineStateDirectory(machine, directories.state),
                                examineRunDirectory(machine, directories.run),
                                examinePermissions(machine, directories),
                                examineDatabase(context),
                                examineDaemon(context),
                                examineClock(machine)};
  try {
    if (auto budget = examineBudget(context)) findings.push_back(std::move(*budget));
  } catch (const statedb::Error&) {
    // Told by examineDatabase.
  }
  return findings;
}

rt::String jsonOf(const std::vector<Finding>& findings) {
  rt::String json = jsonHead(false) + R"("checks":[)";
  const char* separator = "";
  for (const Finding& each : findings) {
    const rt::String result = each.health == Health::failed ? "failed" : nameOf(each.health);
    ((json += separator) += R"({"what":)") += quoted(each.what);
    (json += R"(,"result":)") += quoted(result);
    (json += R"(,"finding":)") += quoted(each.finding);
    ((json += R"(,"mend":)") += each.mend.empty() ? rt::String("null") : quoted(each.mend)) += '}';
    separator = ",";
  }
  return json += "]}";
}

// As wide as the longest of their names.
constexpr size_t margin = 9;

void print(Context& context, const Finding& each) {
  const rt::String name = nameOf(each.health);
  std::ostream& out = context.world().out;
  out << inked(name, inkOf(each.health), context.style()) << std::string(margin - name.size(), ' ')
      << visible(each.what + ": " + each.finding) << '\n';
  if (!each.mend.empty()) out << std::string(margin, ' ') << visible(each.mend) << '\n';
}

}  // namespace

Exit examine(Context& context, const Arguments&) {
  const std::vector<Finding> findings = findingsOf(context);
  if (context.format() == Format::json)
    context.printJson(jsonOf(findings));
  else
    for (const Finding& each : findings) print(context, each);
  const bool isFailed = std::any_of(findings.begin(), findings.end(), [](const Finding& each) {
    return each.health == Health::failed;
  });
  return isFailed ? Exit::failed : Exit::done;
}

}  // namespace ctl
