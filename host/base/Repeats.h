// Which of the messages that come again and again are written.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "runtime/base/Seconds.h"
#include "runtime/base/String.h"
#include "runtime/base/Trace.h"

namespace host {

// Decides that a message is written when it is new, and from then on once a minute, with how often
// it came. The same: of the same place in the code, with the same text, of the same VM. Pure; of
// bounded size.
class Repeats {
 public:
  static constexpr rt::Seconds interval{60};
  static constexpr size_t mostKnown = 256;
  // One that is longer is written each time.
  static constexpr size_t longestText = 1024;

  // How often a message has come, and within what time, since it was written last.
  struct Count {
    uint64_t times = 1;
    rt::Seconds within{0};
  };
  // A message whose turn it is, though it does not come any more.
  struct Due {
    rt::TraceRecord record;  // its text is `text`
    std::string text;
    rt::String vm;
    Count count;
  };

  // What is to be written of a message that comes now; nothing for 0 times.
  Count heard(const rt::TraceRecord& record, const rt::String& vm, rt::Seconds now);
  // Those that came since they were written last, which was a minute ago or more. To be asked now
  // and then; cheap while there are none.
  std::vector<Due> due(rt::Seconds now);

 private:
  using Key = std::tuple<const char*, unsigned, std::string, rt::String>;  // file, line, text, VM
  struct Known {
    const rt::TraceHandle* handle;
    unsigned level;
    const char* function;
    rt::Seconds written;
    uint64_t leftOut;  // since then
  };

  void forgetOld(rt::Seconds now);

  std::map<Key, Known> known_;
  rt::Seconds next_ = rt::Seconds::infinity();  // not later than the first is due, or old
};

// "TEXT (13 times in 60 s)"; of one time, the text.
std::string counted(std::string_view text, const Repeats::Count& count);

}  // namespace host
