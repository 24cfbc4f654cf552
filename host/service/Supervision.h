// What the service manager and the journal are told, where there are such.
#pragma once

#include <optional>

#include "runtime/base/Seconds.h"
#include "runtime/base/String.h"
#include "runtime/base/Trace.h"

namespace host {

// To the service manager that started us; without one, nothing happens.
void notifyReady();
void notifyStopping();
void notifyAlive();
// How often the manager wants to hear that we are alive, at the latest; nothing: not at all.
std::optional<rt::Seconds> aliveInterval();

// Whether standard error is the journal's.
bool logsToJournal();
// One entry, with VMAGENT_VM where the message is of a VM.
void writeJournal(const rt::TraceRecord& record, const rt::String& vm);

}  // namespace host
