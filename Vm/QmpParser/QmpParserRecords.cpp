#include "Vm/QmpParser/QmpParserRecords.h"

#include "Vm/QmpParser/QmpParserSm.h"
#include "runtime/entity/TypeRegistry.h"

namespace Vm {

namespace {

const rt::RegisteredTypes<QmpParserRequest, QmpParserResponse, QmpParserSm> registered;

}  // namespace

}  // namespace Vm
