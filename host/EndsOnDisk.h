// How VMs' last runs have ended, kept over a reboot.
#pragma once

#include <vector>

#include "host/base/KeptFile.h"
#include "host/guests/EndBook.h"

namespace host {

// Reads the two files of EndBook, and has them written where one says something else. Owned by the
// daemon, or by who ends all guests without one.
class EndsOnDisk {
 public:
  // `directory` outlives it. A file that is damaged is put aside.
  EndsOnDisk(const KeptDirectory& directory, const rt::Clock::Ptr& clock);
  EndsOnDisk(const EndsOnDisk&) = delete;

  const EndBook& book() const { return book_; }
  // Whose run ended with the boot before, as nobody has been told yet.
  const std::vector<rt::String>& news() const { return news_; }

  // See EndBook.
  void runs(const rt::String& vm, uint64_t run, uint64_t startedAt);
  void ended(const rt::String& vm, uint64_t run, const End& end, bool isWithAll = false);
  void vmDel(const rt::String& vm);
  // Writes what is to be written, for so long at most for each file.
  void finish(rt::Seconds atMost);

 private:
  using Text = std::string (EndBook::*)() const;
  KeptFile::Next nextOf(Text text, std::string& written);

  EndBook book_;
  std::string endsWritten_;
  std::string runningWritten_;
  const rt::Ptr<KeptFile> ends_;
  const rt::Ptr<KeptFile> running_;
  std::vector<rt::String> news_;
};

}  // namespace host
