#include "ctl/view/VmView.h"

#include <ctime>

#include "ctl/line/Json.h"
#include "ctl/view/OwnRows.h"
#include "ctl/view/StateView.h"
#include "model/Tables.h"
#include "model/VmFields.h"
#include "runtime/base/Text.h"
#include "statedb/EntityDocument.h"

namespace ctl {

namespace {

constexpr size_t longestName = 20;  // on a narrow terminal, in characters

rt::String yesOrNo(bool yes) { return yes ? "yes" : "no"; }

// What is only to be known, and what passes, is not red.
Ink whyInk(const VmRow& row) {
  const rt::String& severity = row.process->severity();
  return severity == "bad" || (severity.empty() && row.problem) ? Ink::bad : Ink::plain;
}

rt::String stateOf(const VmRow& row) { return row.status ? row.status->state() : ""; }

rt::String problemOf(const VmRow& row) {
  if (row.problem) return row.problem->problem();
  return row.unreadable.empty() ? "" : row.unreadable.front().text();
}

rt::String portOf(const Vm::VmConfig& vm) {
  return vm.vncPort() == 0 ? "" : rt::toText(vm.vncPort());
}

// "nic00=Vlan100,nic01=Vlan200".
rt::String cardsOf(const Vm::VmConfig& vm) {
  rt::String text;
  for (const auto& [key, card] : vm.vnicConfigs())
    (((text += text.empty() ? "" : ",") += key) += '=') += card->intfName();
  return text;
}

// Those that are not as usual, such as "cpuWeight 50, cpuMax 1.5".
rt::String unusualOf(const VmRow& row, std::string_view table) {
  const model::VmOwn usual;
  rt::String text;
  for (const model::VmField& field : model::vmFields()) {
    if (field.table != table) continue;
    const rt::String value = model::valueOf(row.own.records.record(table), field);
    if (value == model::valueOf(usual.record(table), field)) continue;
    text += (text.empty() ? "" : ", ") + rt::String(field.name) + " " + value;
    if (field.kind == model::VmField::Kind::mebibytes) text += " MiB";
  }
  return text;
}

// "Limits:".
rt::String titleOf(std::string_view member) {
  std::string title = std::string(member) + ":";
  title.front() = static_cast<char>(std::toupper(title.front()));
  return title;
}

// "2024-11-20T20:28:43Z".
rt::String timeText(uint64_t since) {
  const auto seconds = static_cast<time_t>(since);
  tm parts{};
  char text[32] = "";
  if (gmtime_r(&seconds, &parts)) std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text;
}

// Lines "Name:     web1", the values below each other.
class Facts {
 public:
  void add(std::string_view name, const rt::String& value) {
    text_ += rt::format("%-10s", rt::String(name).charPtr()) +
             (value.empty() ? "-" : visible(value)) + "\n";
  }
  void lines(const rt::String& text) { text_ += text; }
  const rt::String& text() const { return text_; }

 private:
  rt::String text_;
};

// Where to look at the guest's screen; the port counts only where the guest has no socket.
rt::String displayOf(const VmRow& row, const rt::String& screen) {
  const uint32_t port = row.config->vncPort();
  if (!screen.empty()) return "VNC, " + screen;
  if (port == 0) return {};
  return (row.process->pid() == 0 ? "VNC, vncPort " : "VNC, port ") + rt::toText(port);
}

// Never null: of one that no guest has, nothing is known.
model::VmCard::Ptr cardOf(const VmRow& row, const rt::String& key) {
  const auto found = row.cards.find(key);
  return found == row.cards.end() ? rt::make<model::VmCard>(key) : found->second;
}

rt::String cardsJson(const VmRow& row) {
  const auto textOrNull = [](const rt::String& text) {
    return text.empty() ? rt::String("null") : quoted(text);
  };
  rt::String json = "[";
  if (!row.config) return json + "]";
  for (const auto& [key, card] : row.config->vnicConfigs()) {
    const auto now = cardOf(row, key);
    json += (json.size() == 1 ? "" : ",") + rt::String(R"({"key":)") + quoted(key);
    (json += R"(,"intf":)") +=
        quoted(now->interface().empty() ? card->intfName() : now->interface());
    (json += R"(,"tap":)") += textOrNull(now->tap());
    (json += R"(,"link":)") += textOrNull(now->link());
    (json += R"(,"since":)") +=
        (now->since() == 0 ? rt::String("null") : rt::toText(now->since())) + "}";
  }
  return json + "]";
}

void addConfig(Facts& facts, const VmRow& row, const std::optional<std::set<rt::String>>& present,
               const rt::String& screen, const Telling& telling) {
  const Vm::VmConfig& vm = *row.config;
  facts.add("Memory:", rt::toText(vm.memory()) + " MiB");
  facts.add("Display:", displayOf(row, screen));
  facts.add("Disk:", vm.diskImage());
  facts.add("Format:", row.imageFormat());
  for (const model::VmField& field : model::vmFields())
    if (!field.title.empty())
      facts.add(field.title, model::valueOf(row.record(field.table), field));
  for (const auto& [table, member] : model::ownTables)
    if (const rt::String unusual = unusualOf(row, table); !unusual.empty())
      facts.add(titleOf(member), unusual);
  if (vm.vnicConfigs().empty()) return facts.add("Cards:", "");
  Table cards({"Cards:", "KEY", "MODEL", "MAC", "INTERFACE", "PRESENT", "LINK", "SINCE", "TAP"});
  for (const auto& [key, card] : vm.vnicConfigs()) {
    const rt::String isThere = present ? yesOrNo(present->count(card->intfName()) != 0) : "";
    const auto now = cardOf(row, key);
    cards.row({" ", key, card->model(), card->macAddr().text(), card->intfName(), isThere,
               now->link(), now->since() == 0 ? rt::String() : ageText(now->since(), telling.now),
               now->tap()});
  }
  facts.lines(cards.text({}));
}

}  // namespace

rt::String vmJson(const VmRow& row) {
  rt::String json = R"("name":)" + quoted(row.name);
  if (row.isUnknown()) json += R"(,"unknown":true)";
  if (row.isLeaving()) json += R"(,"removed":true)";
  (json += ",") += stateJson(row);
  (json += R"(,"cards":)") += cardsJson(row);
  (json += R"(,"config":)") += row.config ? statedb::documentOf(*row.config) : "null";
  const rt::String format = row.imageFormat();
  (json += R"(,"format":)") += format.empty() ? rt::String("null") : quoted(format);
  json += ownMembers(row.own.records);
  (json += R"(,"status":)") += row.status ? statedb::documentOf(*row.status) : "null";
  const model::VmProcess& process = *row.process;
  (json += R"(,"process":{"process":)") += quoted(process.process());
  (json += R"(,"pid":)") += rt::toText(process.pid());
  ((json += R"(,"restarts":)") += rt::toText(process.restarts())) += '}';
  return (json += R"(,"problem":)") += row.problem ? statedb::documentOf(*row.problem) : "null";
}

Table vmTable(Format format) {
  std::vector<Cell> headers{"NAME", "WANTED", "ACTUAL", "SINCE", "WHY", "NEXT"};
  constexpr size_t why = 4;
  if (format == Format::wide)
    headers.insert(headers.end(), {"PID", "MEMORY", "VNC", "DISK", "CARDS", "CONSOLE"});
  return {headers, why};
}

std::vector<Cell> vmCells(const VmRow& row, Format format, const Telling& telling) {
  std::vector<Cell> cells{telling.isNarrow ? cutInside(row.name, longestName) : row.name,
                          wantedOf(row),
                          actualOf(row),
                          sinceOf(row, telling),
                          {whyOf(row, telling), whyInk(row)},
                          nextOf(row, telling)};
  if (format == Format::wide) {
    const bool isRead = row.config != nullptr;
    cells.emplace_back(row.process->pid() == 0 ? "" : rt::toText(row.process->pid()));
    cells.emplace_back(isRead ? rt::toText(row.config->memory()) + "M" : "");
    cells.emplace_back(isRead ? portOf(*row.config) : "");
    cells.emplace_back(isRead ? row.config->diskImage() : "");
    cells.emplace_back(isRead ? cardsOf(*row.config) : "");
    cells.emplace_back(row.status ? row.status->consolePtyPath() : "");
  }
  return cells;
}

std::vector<Cell> goneCells(const rt::String& name, Format format) {
  VmRow row;
  row.name = name;
  std::vector<Cell> cells = vmCells(row, format, {});
  cells[1] = "gone";
  return cells;
}

rt::String vmText(const VmRow& row, const std::optional<std::set<rt::String>>& present,
                  const rt::String& screen, const Telling& telling) {
  Facts facts;
  facts.add("Name:", row.name);
  facts.add("Wanted:", wantedOf(row));
  facts.add("Actual:", actualOf(row).text);
  facts.add("Since:", sinceOf(row, telling));
  facts.add("Why:", whyOf(row, telling));
  facts.add("Next:", nextOf(row, telling));
  facts.add("State:", stateOf(row));
  const model::VmProcess& process = *row.process;
  const rt::String pid = process.pid() == 0 ? "" : ", pid " + rt::toText(process.pid());
  facts.add("Process:", process.process() + pid);
  facts.add("Console:", row.status ? row.status->consolePtyPath() : "");
  if (row.config) addConfig(facts, row, present, screen, telling);
  if (row.status && !row.status->cmdStatusStr().empty())
    facts.add("Monitor:", row.status->cmdStatusStr());
  if (row.problem) {
    facts.add("Problem:", row.problem->problem());
    facts.add("", "(" + row.problem->source() + ", since " + timeText(row.problem->since()) + ")");
  } else {
    facts.add("Problem:", problemOf(row));
  }
  return facts.text();
}

}  // namespace ctl
