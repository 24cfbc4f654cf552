#include "ctl/view/VmDocument.h"

#include "ctl/line/Json.h"
#include "ctl/view/VmRows.h"
#include "model/Tables.h"
#include "model/VmOwn.h"

namespace ctl {

rt::String vmDocument(const rt::String& name, const DocsByTable& rows) {
  const rt::String& config = rows.at(model::table::vmConfig);
  VmRow row;
  row.name = name;
  configIs(row, {model::table::vmConfig, name, config, 1, 1});
  if (const auto image = rows.find(model::table::vmImage); image != rows.end())
    row.image = imageOf({model::table::vmImage, name, image->second, 1, 1});
  rt::String json = R"({"name":)" + quoted(name) + R"(,"config":)" + config;
  if (const rt::String format = row.imageFormat(); !format.empty())
    (json += R"(,"format":)") += quoted(format);
  for (const auto& [table, member] : model::ownTables)
    if (const auto own = rows.find(rt::String(table)); own != rows.end())
      (((json += ",\"") += member) += "\":") += own->second;
  return json + "}";
}

}  // namespace ctl
