// All VMs' disk images: who may be started with which.
#pragma once

#include <functional>
#include <map>
#include <optional>

#include "host/database/ImageRows.h"
#include "host/guests/ImageVerdict.h"
#include "model/DiskImage.h"

namespace host {

// Judges the image of each start just before it.
//
//   the image                                  | a start    | one that takes up a guest
//   -------------------------------------------+------------+--------------------------
//   was not looked at just now                 | is awaited | is awaited
//   cannot be read: missing, no file, short,   | is refused | is refused
//     its file system does not answer          |            |
//   its row in vmImage is not valid            | is refused | goes on, with a note
//   is taken by nobody for raw or qcow2        | is refused | goes on
//   is qcow2, and needs a second file          | is refused | goes on
//   is a disk that the machine or another VM   | is refused | goes on
//     has; whoever has it keeps it             |            |
//   is raw, and begins as another format       | goes on, with a note
//   else                                       | goes on    | goes on
//
// A guest that is taken up has its image open already: nothing is opened for it, but by the agent,
// which reads a few bytes. So that is all that has to go well.
class Images final : public ImageJudge {
 public:
  // Whether QEMU is told what an image is; if not, it goes by the first bytes.
  enum class Formats : uint8_t { told, guessed };

  struct Tools {
    // What is at the VM's path, or nothing: `known` is called then.
    std::function<std::optional<model::ImageFacts>(const rt::String& vm, const rt::String& path)>
        look;
    std::function<void(const rt::String& vm)> forget;  // what was asked to look at for the VM
    // What is known of the VM's image is another thing now.
    std::function<void(const rt::String& vm)> known;
    Formats formats = Formats::told;
  };
  // `rows` outlives it.
  Images(Tools tools, ImageRows& rows) : tools_(std::move(tools)), rows_(rows) {}

  ImageVerdict judge(const ImageQuestion& question) override;
  rt::String format(const rt::String& vm, const rt::String& path) const override;
  void release(const rt::String& vm) override;
  // What the VM's row in vmImage says now; nothing: there is none.
  void rowIs(const rt::String& vm, const std::optional<statedb::Record>& row);
  void rowIsLost(const rt::String& vm);  // see ImageRows

 private:
  ImageVerdict judgeStart(const ImageQuestion& question, const model::ImageFacts& facts);
  ImageVerdict judgeTakeUp(const ImageQuestion& question, const model::ImageFacts& facts);
  rt::String problemOf(const ImageQuestion& question, const model::ImageFacts& facts,
                       guest::ImageFormat format);
  rt::String noteOf(const ImageQuestion& question, const model::ImageFacts& facts,
                    guest::ImageFormat format) const;
  void hold(const rt::String& vm, const model::ImageFacts& facts);
  void letGo(const rt::String& vm);

  const Tools tools_;
  ImageRows& rows_;
  std::map<rt::String, model::FileId> held_;  // by VM
  std::map<rt::String, rt::String> waiting_;  // VM -> the one that has its image
};

}  // namespace host
