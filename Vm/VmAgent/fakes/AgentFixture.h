// What tests of the agent over fakes start from.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <set>

#include "Vm/VmAgent/fakes/AgentWorld.h"
#include "Vm/VmAgent/fakes/EffectRecorder.h"

namespace Vm {

using Lines = std::vector<std::string>;

// `lines` with addresses as ADDRESS and `path` as DISK.
Lines normalised(Lines lines, const std::string& path);
// Those that contain `text`.
Lines withText(const Lines& lines, std::string_view text);
// Those before the first that contains `text`.
Lines before(Lines lines, std::string_view text);
// What the runtime refuses `work` with, or "nothing".
std::string refusalOf(const std::function<void()>& work);
// The names of an entity's attributes in order, read-only ones in brackets.
std::string listing(const rt::Entity& entity);

class AgentFixture : public testing::Test, public fakes::AgentWorld {
 protected:
  const rt::Ptr<fakes::EffectRecorder> recorder = rt::make<fakes::EffectRecorder>(effects);

  // What was traced since the last call, normalised.
  Lines said() { return normalised(traces.take(), disk.path()); }
  Lines saidAt(unsigned level) { return normalised(traces.take(level), disk.path()); }
  void forget();

  // A VM whose QEMU was started, greeted and answered all that it was asked; nothing of it is left
  // in traces and effects. The agent is started if it was not.
  VmConfig::Ptr addRunning(const std::string& name);
  // The end of its process is told.
  void endProcess(const std::string& name, int waitStatus = 0);
  int32_t pidOf(const std::string& name) const { return vm(name)->qemuChildProcess()->pid(); }
};

}  // namespace Vm
