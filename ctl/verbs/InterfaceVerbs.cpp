#include "ctl/verbs/InterfaceVerbs.h"

#include <algorithm>
#include <map>

#include "ctl/line/Json.h"
#include "ctl/verbs/ConfigVerbs.h"
#include "ctl/view/StateView.h"
#include "ctl/view/VmRows.h"
#include "model/Tables.h"
#include "model/VmConfigCheck.h"
#include "runtime/base/NearName.h"
#include "runtime/base/Problem.h"
#include "runtime/base/Text.h"
#include "runtime/records/Interface.h"
#include "statedb/EntityDocument.h"

namespace ctl {

namespace {

constexpr size_t longestDevice = model::longestIntfName;

using InterfaceRows = std::map<rt::String, model::InterfaceStatus::Ptr>;

// The daemon's word, and of what it has not seen yet the configuration's.
InterfaceRows allInterfaces(Context& context) {
  InterfaceRows rows;
  for (const auto& record : context.db().snapshot({model::table::interface}).records) {
    const auto wanted = rt::make<Interface::IntfStatus>(rt::IntfId(record.key));
    statedb::fillKnown(*wanted, record.doc);
    rows[record.key] = rt::make<model::InterfaceStatus>(record.key);
    rows[record.key]->deviceNameIs(wanted->deviceName());
  }
  for (const auto& record : context.status({model::table::interfaceStatus}).records) {
    auto& row = rows[record.key];
    row = rt::make<model::InterfaceStatus>(record.key);
    statedb::fillKnown(*row, record.doc);
  }
  return rows;
}

rt::String interfacesJson(const InterfaceRows& rows, bool isStale) {
  rt::String json = jsonHead(isStale) + R"("interfaces":[)";
  const char* separator = "";
  for (const auto& [id, row] : rows) {
    ((json += separator) += R"({"intfId":)") += quoted(id);
    (json += R"(,"deviceName":)") += quoted(row->deviceName());
    (json += R"(,"present":)") += rt::toText(row->present());
    (json += R"(,"carrier":)") += rt::toText(row->carrier());
    (json += R"(,"since":)") += row->since() == 0 ? rt::String("null") : rt::toText(row->since());
    if (!row->problem().empty()) (json += R"(,"problem":)") += quoted(row->problem());
    json += '}';
    separator = ",";
  }
  return json += "]}";
}

Table interfacesTable(const InterfaceRows& rows, uint64_t now) {
  Table table({"INTERFACE", "DEVICE", "PRESENT", "CARRIER", "SINCE", "PROBLEM"});
  for (const auto& [id, row] : rows)
    table.row({id,
               row->deviceName(),
               row->present() ? "yes" : "no",
               row->carrier() ? "yes" : "no",
               row->since() == 0 ? rt::String() : ageText(row->since(), now),
               {row->problem(), Ink::bad}});
  return table;
}

// A name that the kernel takes for a device.
bool isDeviceName(std::string_view name) {
  const auto isBad = [](char c) {
    return static_cast<unsigned char>(c) <= 0x20 || c == '/' || c == ':' || c == 0x7f;
  };
  return !name.empty() && name.size() <= longestDevice && name != "." && name != ".." &&
         std::none_of(name.begin(), name.end(), isBad);
}

}  // namespace

std::vector<rt::String> interfaceProblems(const rt::String& id, const rt::String& device) {
  std::vector<rt::String> sentences;
  if (const auto right = model::intfNameRight(id))
    sentences.push_back(id + ": " + rt::Problem{"name", id, *right}.text());
  if (!isDeviceName(device))
    sentences.push_back(id + ": " +
                        rt::Problem{"deviceName", device,
                                    "must be 1 to 15 characters without blanks, slashes and colons"}
                            .text());
  return sentences;
}

Exit listInterfaces(Context& context, const Arguments&) {
  const InterfaceRows rows = allInterfaces(context);
  const bool isStale = complainOfStaleness(context);
  if (context.format() == Format::json) {
    context.printJson(interfacesJson(rows, isStale));
  } else if (context.format() == Format::name) {
    for (const auto& [id, row] : rows) context.world().out << visible(id) << '\n';
  } else if (rows.empty()) {
    context.tell("there are no interfaces");
  } else {
    context.print(interfacesTable(rows, context.world().timeOfDay()));
  }
  return Exit::done;
}

Exit setInterface(Context& context, const Arguments& arguments) {
  const rt::String& id = arguments.words().front();
  const auto device = arguments.value("device");
  if (!device) throw Refusal(Exit::usage, "'interface set' needs --device DEV");
  const std::vector<rt::String> problems = interfaceProblems(id, *device);
  if (!problems.empty()) throw Refusal(Exit::invalid, problems);
  const auto wanted = rt::make<Interface::IntfStatus>(rt::IntfId(id));
  wanted->deviceNameIs(*device);
  context.db().commit(
      statedb::Transaction().put(model::table::interface, id, statedb::documentOf(*wanted)));
  context.tell(id + ": is device '" + *device + "' now");
  complainOfDelay(context);
  return Exit::done;
}

Exit unsetInterface(Context& context, const Arguments& arguments) {
  const rt::String& id = arguments.words().front();
  const statedb::Snapshot snapshot = context.db().snapshot({model::table::interface});
  std::vector<std::string_view> ids;
  ids.reserve(snapshot.records.size());
  for (const auto& record : snapshot.records) ids.push_back(record.key);
  if (std::find(ids.begin(), ids.end(), std::string_view(id)) == ids.end())
    throw Refusal(Exit::noSuch,
                  id + ": no device is set for that interface" + rt::didYouMean(id, ids));
  context.db().commit(statedb::Transaction().del(model::table::interface, id));
  context.tell(id + ": is the device of its own name now");
  complainOfDelay(context);
  return Exit::done;
}

}  // namespace ctl
