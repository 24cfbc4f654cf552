#include "host/ConfigFeed.h"

#include "host/Report.h"

namespace host {

ConfigFeed::ConfigFeed(statedb::StateDb& db, std::vector<rt::String> tables, Sink sink,
                       rt::Clock::Ptr clock)
    : follower_(db, std::move(tables)),
      sink_(std::move(sink)),
      wakeUp_(*this, rt::make<rt::FileDescriptor>("configuration")),
      clock_(*this, std::move(clock)) {
  handleInitialized();
}

void ConfigFeed::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
  listen();
  sink_(follower_.catchUp());
}

void ConfigFeed::listen() {
  wakeUp_->descriptorIs(follower_.wakeUp());
  wakeUp_->notifyOnReadableIs(true);
}

void ConfigFeed::handleWakeUp() { look(); }

void ConfigFeed::handleClock() {
  if (!trouble_.empty()) look();
}

void ConfigFeed::look() {
  std::vector<statedb::Change> news;
  try {
    if (reopen_) {
      follower_.reopen();
      listen();
    }
    news = follower_.catchUp();
    reopen_ = false;
  } catch (const statedb::Error& error) {
    if (trouble_ != error.what()) report(rt::String("configuration: ") + error.what());
    trouble_ = error.what();
    // A file that another took the place of is never ours again.
    reopen_ = error.trouble() != statedb::Trouble::locked;
    wakeUp_->close();
    clock_.timeMinIs(clock_.notifier()->now() + retryInterval);
    return;
  }
  if (!trouble_.empty()) {
    report("configuration: read again");
    trouble_ = {};
    listen();
  }
  sink_(news);
}

}  // namespace host
