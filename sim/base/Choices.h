// All that a history leaves to chance, decided by one seed.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

class Choices;

// Where a history differs from what its seed alone would make of it.
struct FixedChoice {
  static constexpr uint64_t all = UINT64_MAX;  // every choice of the stream

  std::string stream;
  uint64_t ordinal = 0;
  uint64_t value = 0;

  friend bool operator==(const FixedChoice&, const FixedChoice&) = default;
  friend auto operator<=>(const FixedChoice&, const FixedChoice&) = default;
};

// "stream#ordinal=value", or "stream#*=value" for all, and back; throws std::invalid_argument.
std::string toText(const FixedChoice& choice);
FixedChoice fixedChoiceFromText(std::string_view text);

// The choices about one thing, as one VM's faults, or whose turn it is. One stream's choices do not
// depend on how many another made.
class Stream {
 public:
  Stream(Choices& owner, std::string name);

  const std::string& name() const { return name_; }

  // One of 0 to `count` - 1, each as likely. 0 is to mean the mildest: no fault, the first, the
  // shortest.
  uint64_t below(uint64_t count);
  // True once in that many times; 0: never.
  bool oneIn(uint64_t times) { return times > 0 && below(times) == times - 1; }
  // Between the two, more often near the lower: each power of two as likely.
  uint64_t between(uint64_t least, uint64_t most);
  template <class T>
  const T& of(const std::vector<T>& all) {
    return all[below(all.size())];
  }

  // How many it has made.
  uint64_t made() const { return made_; }

 private:
  friend class Choices;

  void fix(const FixedChoice& choice);

  Choices& owner_;
  const std::string name_;
  uint64_t state_;
  uint64_t made_ = 0;
  std::map<uint64_t, uint64_t> fixed_;  // by ordinal
  std::optional<uint64_t> allFixed_;
};

// Owned by the world.
class Choices {
 public:
  explicit Choices(uint64_t seed) : seed_(seed) {}
  Choices(const Choices&) = delete;

  uint64_t seed() const { return seed_; }
  // Every stream begins anew, by another seed.
  void seedIs(uint64_t seed);
  void fix(const FixedChoice& choice);

  // Stays where it is.
  Stream& stream(std::string_view name);

  // While it is switched on, each choice that is not 0 is kept.
  void recordIs(bool on) { recording_ = on; }
  const std::vector<FixedChoice>& recorded() const { return recorded_; }

 private:
  friend class Stream;

  uint64_t seed_;
  std::map<std::string, Stream, std::less<>> streams_;
  std::vector<FixedChoice> fixed_;
  bool recording_ = false;
  std::vector<FixedChoice> recorded_;
};

}  // namespace sim
