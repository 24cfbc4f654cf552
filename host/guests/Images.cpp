#include "host/guests/Images.h"

#include <algorithm>

namespace host {

namespace {

using Kind = ImageVerdict::Kind;

// Its status shows nothing of it until then.
constexpr const char* takenUpThen =
    "; the guest that an earlier vmagentd started goes on, and is taken up then";

ImageVerdict refused(const rt::String& problem) {
  return {.kind = Kind::refused, .problem = problem};
}

rt::String textOf(const ImageQuestion& question, const rt::String& right) {
  return rt::Problem{"diskImage", question.path, right}.text();
}

}  // namespace

ImageVerdict Images::judge(const ImageQuestion& question) {
  const auto facts = tools_.look(question.vm, question.path);
  if (!facts) return {.kind = Kind::awaited};
  waiting_.erase(question.vm);
  ImageVerdict verdict;
  if (const auto problem = model::accessProblem(question.path, *facts))
    verdict = refused(problem->text() + (question.takesUp ? takenUpThen : ""));
  else if (question.takesUp)
    verdict = judgeTakeUp(question, *facts);
  else
    verdict = judgeStart(question, *facts);
  if (verdict.kind == Kind::fit) hold(question.vm, *facts);
  if (verdict.kind == Kind::refused) letGo(question.vm);
  return verdict;
}

rt::String Images::format(const rt::String& vm, const rt::String& path) const {
  const auto format = rows_.format(vm, path);
  return format ? rt::String(guest::textOf(*format)) : rt::String();
}

ImageVerdict Images::judgeStart(const ImageQuestion& question, const model::ImageFacts& facts) {
  const auto& [vm, path, takesUp] = question;
  if (const rt::String problem = rows_.problem(vm); !problem.empty()) return refused(problem);
  auto format = rows_.format(vm, path);
  if (!format) {
    if (const auto problem = model::imageProblem(path, facts)) return refused(problem->text());
    format = model::detectedFormat(facts);
  }
  if (!rows_.formatIs(vm, path, *format)) return {.kind = Kind::awaited};
  if (const rt::String problem = problemOf(question, facts, *format); !problem.empty())
    return refused(problem);
  return {.note = noteOf(question, facts, *format), .format = guest::textOf(*format)};
}

// What its QEMU was told once is not known. It is told again if the guest ends meanwhile.
ImageVerdict Images::judgeTakeUp(const ImageQuestion& question, const model::ImageFacts& facts) {
  const auto& [vm, path, takesUp] = question;
  if (const rt::String problem = rows_.problem(vm); !problem.empty()) return {.note = problem};
  auto format = rows_.format(vm, path);
  if (!format && !model::imageProblem(path, facts)) format = model::detectedFormat(facts);
  if (!format) return {};
  if (!rows_.formatIs(vm, path, *format)) return {.kind = Kind::awaited};
  return {.note = noteOf(question, facts, *format), .format = guest::textOf(*format)};
}

rt::String Images::problemOf(const ImageQuestion& question, const model::ImageFacts& facts,
                             guest::ImageFormat format) {
  if (const auto problem = model::imageProblem(question.path, facts, format))
    return problem->text();
  const rt::String other = model::otherFormat(facts, format);
  if (tools_.formats == Formats::guessed && !other.empty())
    return textOf(question, "must begin as what it is, " + rt::String(guest::textOf(format)) +
                                ", for QEMU is not told; it begins as " + other + " does");
  if (facts.isCd) return {};  // any number may read one
  if (facts.isInUse)
    return textOf(question,
                  "must not be in use: the machine has it mounted, or made it part of "
                  "something else");
  for (const auto& [vm, file] : held_) {
    if (vm == question.vm || file != facts.file) continue;
    waiting_[question.vm] = vm;
    return textOf(question, "must be another image: VM '" + vm + "' has it");
  }
  return {};
}

rt::String Images::noteOf(const ImageQuestion& question, const model::ImageFacts& facts,
                          guest::ImageFormat format) const {
  const rt::String other = model::otherFormat(facts, format);
  if (other.empty()) return {};
  return "the disk image '" + question.path + "' is opened as " +
         rt::String(guest::textOf(format)) + ", as it was named, though it begins as " + other +
         " does: the guest may have written that; if it is another image now, 'vmctl set " +
         question.vm + " format=...' says so";
}

void Images::hold(const rt::String& vm, const model::ImageFacts& facts) {
  const auto held = held_.find(vm);
  if (held != held_.end() && held->second == facts.file && !facts.isCd) return;
  letGo(vm);
  if (!facts.isCd) held_[vm] = facts.file;
}

void Images::letGo(const rt::String& vm) {
  if (held_.erase(vm) == 0) return;
  for (const auto& [other, holder] : std::map(waiting_))
    if (holder == vm) tools_.known(other);
}

void Images::release(const rt::String& vm) {
  tools_.forget(vm);
  waiting_.erase(vm);
  letGo(vm);
}

void Images::rowIs(const rt::String& vm, const std::optional<statedb::Record>& row) {
  rows_.rowIs(vm, row);
  tools_.known(vm);
}

void Images::rowIsLost(const rt::String& vm) {
  rows_.rowIsLost(vm);
  tools_.known(vm);
}

}  // namespace host
