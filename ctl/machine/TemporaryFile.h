// A file in the directory for temporary files, and the editor that a person likes.
#pragma once

#include "ctl/machine/EditedFile.h"

namespace ctl {

class TemporaryFile final : public EditedFile {
 public:
  // In `directory`, its name beginning with `name`, readable by its owner alone.
  TemporaryFile(const rt::String& directory, const rt::String& name);
  ~TemporaryFile() override;

  rt::String edit(const rt::String& editor, const rt::String& text) override;
  rt::String keep(const rt::String& text) override;

 private:
  void write(const rt::String& text) const;
  rt::String read() const;

  rt::String path_;
  bool isKept_ = false;
};

}  // namespace ctl
