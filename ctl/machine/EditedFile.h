// A text that a person changes with an editor.
#pragma once

#include "runtime/base/String.h"

namespace ctl {

// A file of one's own, which goes with this unless it is kept.
class EditedFile {
 public:
  EditedFile() = default;
  EditedFile(const EditedFile&) = delete;
  virtual ~EditedFile() = default;

  // Writes the text, lets the editor, a command of the shell, change it, and returns it. Throws
  // rt::Exception when the editor fails, or the file cannot be written or read.
  virtual rt::String edit(const rt::String& editor, const rt::String& text) = 0;
  // Writes the text and leaves the file where it is; returns its path.
  virtual rt::String keep(const rt::String& text) = 0;
};

}  // namespace ctl
