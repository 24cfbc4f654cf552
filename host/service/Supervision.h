// What the service manager and the journal are told, where there are such.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "runtime/base/Seconds.h"
#include "runtime/base/String.h"
#include "runtime/base/Trace.h"

namespace host {

// To the service manager that started us; without one, nothing happens. They never wait: false when
// the manager does not read, and has no room left.
bool notifyReady();
bool notifyStopping();
bool notifyAlive();
// How often the manager wants to hear that we are alive, at the latest; nothing: not at all.
std::optional<rt::Seconds> aliveInterval();

// Whether standard error is the journal's.
bool logsToJournal();
// An entry of it, with VMAGENT_VM where the message is of a VM.
std::string journalEntry(const rt::TraceRecord& record, const rt::String& vm);
// Likewise; false also while there is no journal.
bool sendToJournal(std::string_view entry);

}  // namespace host
