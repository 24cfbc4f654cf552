// What each VM's disk image is opened as.
#pragma once

#include <map>
#include <optional>

#include "guest/ImageHeader.h"
#include "statedb/StateDb.h"

namespace host {

// The rows of vmImage. Where nobody has written one, the first that asks says what it is to be, and
// that is written down: never is it guessed again. An operator's word is never overwritten.
class ImageRows {
 public:
  explicit ImageRows(statedb::StateDb& db) : db_(db) {}

  // What the VM's row says now; nothing: there is none.
  void rowIs(const rt::String& vm, const std::optional<statedb::Record>& row);
  // A store without it took the place of the one that had it. What the image is stays as it was
  // said, for its guest may have written into it since, and is written down again.
  void rowIsLost(const rt::String& vm);

  // Why the VM's row cannot be gone by; empty: nothing is wrong.
  rt::String problem(const rt::String& vm) const;
  // What the VM's image of that path is; nothing: nobody has said.
  std::optional<guest::ImageFormat> format(const rt::String& vm, const rt::String& path) const;
  // Has it be that, and returns true. False when somebody else writes the row at this moment: what
  // he says counts, and rowIs() follows. What cannot be written holds as long as this lives.
  bool formatIs(const rt::String& vm, const rt::String& path, guest::ImageFormat format);

 private:
  struct Row {
    uint64_t revision = 0;  // 0: there is none
    rt::String path;
    std::optional<guest::ImageFormat> format;
    rt::String problem;
  };
  struct Own {
    rt::String path;
    guest::ImageFormat format = guest::ImageFormat::raw;
    bool isWritten = false;
  };

  statedb::StateDb& db_;
  std::map<rt::String, Row> rows_;  // by VM
  std::map<rt::String, Own> own_;   // what this has said, until the row is there
  rt::String trouble_;              // the last that was reported
};

}  // namespace host
