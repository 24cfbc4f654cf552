#include "host/database/Intents.h"

#include "host/base/Problems.h"
#include "host/base/Report.h"
#include "model/Tables.h"
#include "model/VmIntent.h"
#include "statedb/EntityDocument.h"

namespace host {

Intent intentOf(const statedb::Record& row) {
  const auto intent = rt::make<model::VmIntent>(row.key);
  const auto problems = statedb::fill(*intent, row.doc);
  if (problems.empty())
    return {intent->restart(), intent->ifEnded(), intent->stop(), intent->within(),
            intent->remove()};
  report(rt::String(model::table::vmIntent) + " of VM " + row.key + ": " + textOf(problems));
  return {};
}

}  // namespace host
