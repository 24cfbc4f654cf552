// What all parts of the daemon stand on.
#pragma once

#include "host/Chronicle.h"
#include "host/EndsOnDisk.h"
#include "host/LoadedAgent.h"
#include "host/Options.h"
#include "host/base/HostStatus.h"
#include "host/base/Problems.h"
#include "host/base/TraceLog.h"
#include "host/database/Configuration.h"
#include "host/database/OwnRows.h"
#include "host/guests/Shims.h"
#include "host/guests/VmStart.h"
#include "host/guests/WaitingGuests.h"
#include "runtime/loop/Clock.h"

namespace host {

// All of it outlives the parts.
struct Ground {
  const Options& options;
  statedb::StateDb& db;
  Shims& shims;
  AroundStart& start;
  TraceLog& traces;
  rt::Clock::Ptr clock;
  const LoadedAgent& agent;
  HostStatus::Ptr hostStatus;
  Problems& problems;
  History& history;
  Chronicle& chronicle;
  EndsOnDisk& ends;
  // The configuration as it was taken last, and the guests that wait for their VM's start.
  const Configuration& configuration;
  const OwnRows& own;
  WaitingGuests& waiting;
};

}  // namespace host
