// How each story ends: all is put right, and then must become right.
#pragma once

#include "sim/story/Stage.h"

namespace sim {

// Heals the machine and lets it come to rest; then it must be as it was asked to be and stay so,
// each VM must be able to start, and nothing be left of what is removed. Fails the world otherwise.
void finish(Stage& stage);

}  // namespace sim
