#include "host/database/ConfigFeed.h"

#include "host/base/Report.h"

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
  handOn(follower_.catchUp());
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
    news = read();
  } catch (const statedb::Error& error) {
    return wait(error);
  }
  if (!trouble_.empty()) {
    report("configuration: read again");
    trouble_ = {};
    wakeUp_->notifyOnReadableIs(true);
  }
  handOn(news);
}

// Listens before it reads, so that nothing is missed in between.
std::vector<statedb::Change> ConfigFeed::read() {
  if (reopen_) {
    follower_.reopen();
    listen();
  }
  auto news = follower_.catchUp();
  reopen_ = false;
  return news;
}

// Deaf until the next try: what cannot be read stays readable.
void ConfigFeed::wait(const statedb::Error& error) {
  if (trouble_ != error.what()) report(rt::String("configuration: ") + error.what());
  trouble_ = error.what();
  // A file that another took the place of is never ours again.
  if (error.trouble() != statedb::Trouble::locked) reopen_ = true;
  wakeUp_->notifyOnReadableIs(false);
  clock_.timeMinIs(clock_.notifier()->now() + retryInterval);
}

}  // namespace host
