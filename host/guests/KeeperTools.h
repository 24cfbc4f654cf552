// What the VMs' keepers work with.
#pragma once

#include "host/base/HostStatus.h"
#include "host/base/Problems.h"
#include "host/base/TraceLog.h"
#include "host/budget/GuestBudget.h"
#include "host/database/OwnRows.h"
#include "host/guests/GoingGuests.h"
#include "host/guests/GuestProcesses.h"
#include "host/guests/ImageVerdict.h"
#include "host/guests/Shims.h"
#include "host/guests/StartOrder.h"
#include "host/guests/VmCards.h"
#include "host/guests/VmStart.h"
#include "host/guests/WaitingGuests.h"
#include "host/state/VmStates.h"
#include "runtime/records/VmConfig.h"
#include "runtime/records/VmStatus.h"

namespace host {

// All of it outlives the keepers.
struct KeeperTools {
  rt::Ptr<const rt::Entity> agent;  // the root that the module's factory made
  Vm::Config::Ptr config;
  Vm::Status::PtrConst status;
  HostStatus::Ptr hostStatus;
  Problems& problems;
  TraceLog& traces;
  VmCards& cards;
  Shims& shims;
  VmStates& states;
  ImageJudge& images;
  const OwnRows& own;
  GuestBudget& budget;
  AroundStart& start;
  const GuestProcesses& processes;
  WaitingGuests& waiting;
  GoingGuests& going;
  StartOrder& order;
  // How long a guest may take to shut itself down; 0: nobody is asked.
  rt::Seconds stopPatience;
};

}  // namespace host
