#include "host/service/ChildEnvironment.h"

#include <pthread.h>
#include <unistd.h>

#include <cstdlib>

namespace host {

namespace {

char** ofChildren = nullptr;  // null: children have ours

// In a forked child: only what is safe there.
void enterChild() {
  if (ofChildren) environ = ofChildren;
}

// The system forgets no such handler, so it is told of it once.
void watchForks() {
  static const int watched = pthread_atfork(nullptr, nullptr, enterChild);
  (void)watched;
}

}  // namespace

ChildEnvironment::ChildEnvironment(Values common) : common_(std::move(common)) {
  watchForks();
  extraIs({});
}

ChildEnvironment::~ChildEnvironment() { ofChildren = nullptr; }

void ChildEnvironment::extraIs(const Values& extra) {
  ofChildren = nullptr;
  texts_.clear();
  pointers_.clear();
  for (const Values* values : {&common_, &extra})
    for (const auto& [name, value] : *values) texts_.push_back(name + "=" + value);
  pointers_.reserve(texts_.size() + 1);
  for (const rt::String& text : texts_) pointers_.push_back(const_cast<char*>(text.charPtr()));
  pointers_.push_back(nullptr);
  ofChildren = pointers_.data();
}

ChildEnvironment::Values keptEnvironment() {
  ChildEnvironment::Values kept;
  for (const char* name : {"LANG", "PATH"})
    if (const char* const value = std::getenv(name))  // NOLINT(concurrency-mt-unsafe): no threads
      kept.emplace_back(name, value);
  return kept;
}

}  // namespace host
