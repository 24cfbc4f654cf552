// What became of a row, for people.
#pragma once

#include "runtime/base/String.h"
#include "runtime/entity/Entity.h"

namespace host {

// "memory 128 -> 140, enabled false -> true, vnicConfig.nic01 added"; empty: the same.
rt::String changesText(const rt::Entity& before, const rt::Entity& after);

}  // namespace host
