// vmagent-sim: plays stories, and tells of those that end badly.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "sim/run/Shrinker.h"
#include "sim/run/Sweep.h"
#include "sim/run/Zygote.h"

namespace {

using namespace sim;
using RealClock = std::chrono::steady_clock;

constexpr const char* usage =
    "Usage: vmagent-sim [OPTION]...\n"
    "Plays what may happen to a switch and its guests on a machine that is made up.\n"
    "\n"
    "  --seconds S      play for so long (10)\n"
    "  --work S         play until a processor has worked for so long, whatever else it does\n"
    "  --count N        play so many histories and no more\n"
    "  --seed N         begin with that seed (1)\n"
    "  --show           play that one only, and show all of it\n"
    "  --story TEXT     play that one only, and show all of it\n"
    "  --stories FILE   play those of the file first, one a line\n"
    "  --sweep N        play short stories, one for each Nth call that fails or is the last\n"
    "  --keep-going     find as many as time allows\n"
    "  --no-shrink      tell the story as it was found\n"
    "  --digest         print each history's digest\n"
    "  --calls          of one that is shown, show each call, too\n"
    "\n"
    "Exit status: 0 all went well, 1 some did not, 2 wrong usage.\n";

struct Options {
  double seconds = 10;
  double work = 0;  // in place of it; 0: none
  uint64_t count = UINT64_MAX;
  uint64_t seed = 1;
  std::string story;
  std::string stories;
  uint64_t stride = 0;  // of a sweep; 0: none
  bool shows = false;
  bool keepsGoing = false;
  bool shrinks = true;
  bool digests = false;
};

bool read(Options& options, const std::vector<std::string>& words) {
  for (size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    if (word == "--show") {
      options.shows = true;
    } else if (word == "--keep-going") {
      options.keepsGoing = true;
    } else if (word == "--no-shrink") {
      options.shrinks = false;
    } else if (word == "--digest") {
      options.digests = true;
    } else if (word == "--calls") {
      Stage::keepsCalls = true;
    } else if (i + 1 == words.size()) {
      return false;
    } else {
      const std::string& value = words[++i];
      if (word == "--seconds")
        options.seconds = std::stod(value);
      else if (word == "--work")
        options.work = std::stod(value);
      else if (word == "--count")
        options.count = std::stoull(value);
      else if (word == "--seed")
        options.seed = std::stoull(value);
      else if (word == "--story")
        options.story = value;
      else if (word == "--sweep")
        options.stride = std::stoull(value);
      else if (word == "--stories")
        options.stories = value;
      else
        return false;
    }
  }
  return true;
}

class Runner {
 public:
  explicit Runner(Options options) : options_(std::move(options)) {}

  int run() {
    if (!options_.story.empty()) return show(storyFromText(options_.story));
    if (options_.shows) return show(storyOf(options_.seed));
    if (options_.stride > 0) {
      sweep(options_.stride, [this](const Story& story) { return play(story); });
      return conclude();
    }
    if (!options_.stories.empty() && !playFile()) return 1;
    const auto end = RealClock::now() + std::chrono::duration<double>(options_.seconds);
    const auto isOver = [&] {
      return options_.work > 0 ? work_ >= options_.work : RealClock::now() >= end;
    };
    for (uint64_t i = 0; i < options_.count && !isOver(); ++i) {
      if (!play(storyOf(options_.seed + i)) && !options_.keepsGoing) break;
    }
    return conclude();
  }

 private:
  int conclude() const {
    std::printf(
        "sim: %llu histories, %.0f hours of a machine's time, %llu calls, %llu failed; "
        "%.1f s of a processor, %.0f histories each, %ld MiB at most\n",
        count_, hours_, calls_, failed_, work_, work_ > 0 ? double(count_) / work_ : 0,
        memory_ / 1024);
    return failed_ == 0 ? 0 : 1;
  }

  int show(const Story& story) {
    const Outcome outcome = zygotes_.play(story);
    std::printf("%s\n%s%s", toText(story).c_str(), outcome.diary.c_str(), outcome.records.c_str());
    tell(outcome);
    std::printf("digest %016llx\n", static_cast<unsigned long long>(outcome.digest));
    return outcome.failed() ? 1 : 0;
  }

  bool playFile() {
    std::ifstream file(options_.stories);
    if (!file) {
      std::cerr << "sim: " << options_.stories << " cannot be read\n";
      return false;
    }
    for (std::string line; std::getline(file, line);)
      if (const size_t begin = line.find_first_not_of(' ');
          begin != std::string::npos && line[begin] != '#')
        play(storyFromText(line));
    return failed_ == 0 || options_.keepsGoing;
  }

  // Whether it ended well.
  bool play(const Story& story) {
    const Outcome outcome = zygotes_.play(story);
    ++count_;
    calls_ += outcome.calls;
    work_ += std::chrono::duration<double>(outcome.work).count();
    memory_ = std::max(memory_, outcome.memory);
    hours_ += std::chrono::duration<double, std::ratio<3600>>(outcome.passed).count();
    if (options_.digests)
      std::printf("%llu %016llx\n", static_cast<unsigned long long>(story.seed),
                  static_cast<unsigned long long>(outcome.digest));
    if (!outcome.failed()) return true;
    ++failed_;
    std::printf("sim: seed %llu fails\n", static_cast<unsigned long long>(story.seed));
    if (!options_.shrinks) {
      if (options_.stride > 0) std::printf("%s\n", toText(story).c_str());
      tell(outcome);
      return false;
    }
    const auto again = [this](const Story& each) { return zygotes_.play(each); };
    const Story shortest = shrunk(story, again);
    const Outcome last = zygotes_.play(shortest);
    std::printf("%s%s\n", last.diary.c_str(), toText(shortest).c_str());
    tell(last);
    return false;
  }

  static void tell(const Outcome& outcome) {
    const Verdict& verdict = outcome.verdict;
    if (outcome.failed())
      std::printf("sim: %s: %s: %s\n", verdict.clause.c_str(), verdict.about.c_str(),
                  verdict.text.c_str());
    std::fflush(stdout);
  }

  const Options options_;
  Zygotes zygotes_;
  unsigned long long count_ = 0;
  unsigned long long calls_ = 0;
  unsigned long long failed_ = 0;
  double hours_ = 0;
  double work_ = 0;
  long memory_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!read(options, {argv + 1, argv + argc})) {
    std::cerr << usage;
    return 2;
  }
  try {
    return Runner(options).run();
  } catch (const std::exception& error) {
    std::cerr << "sim: " << error.what() << "\n";
    return 2;
  }
}
