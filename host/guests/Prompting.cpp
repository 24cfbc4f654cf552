#include "host/guests/Prompting.h"

#include <utility>

namespace host {

void Prompting::factsAre(const SessionFacts& facts, rt::Seconds now) {
  if (!facts.isUp) {
    *this = Prompting();
    return;
  }
  const bool isNew = !std::exchange(isUp_, true);
  if (isNew) askAt_ = now;
  if (isNew || facts.asked != asked_) wakeAt_ = now + longestSilence;
  if (isNew || facts.answered != answered_) {
    heardAt_ = now;
    isUnanswered_ = false;
  } else if (facts.asked != asked_ && now - heardAt_ >= longestWait) {
    isUnanswered_ = true;
  }
  answered_ = facts.answered;
  asked_ = facts.asked;
  isStarting_ = facts.state == "Starting";
  if (facts.state == "Running") askAt_ = never;
}

Prompt Prompting::due(rt::Seconds now) {
  if (now >= askAt_) {
    askAt_ = ++questions_ < mostQuestions ? now + pause_ : never;
    pause_ = pause_ + pause_;
    return Prompt::ask;
  }
  if (now < wakeAt_) return Prompt::none;
  wakeAt_ = now + longestSilence;
  return isStarting_ ? Prompt::none : Prompt::wake;
}

}  // namespace host
