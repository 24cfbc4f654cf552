// VMs' disk images, as an operator names them.
#pragma once

#include <map>

#include "ctl/view/VmRows.h"

namespace ctl {

// What a verb says of a VM's image.
struct ImageWish {
  rt::String format;        // "raw" or "qcow2"; empty: nothing is said
  bool isNamedNow = false;  // the image is another one than before
};

// Adds the VM's row of vmImage to what is written, where there is something to say: the format that
// is wished for, or else, of an image that is named now, the one that it begins as. What cannot be
// told now the daemon fixes before the first start. `known`: the row before. Returns the format
// that the image has then; empty: none yet.
rt::String putImage(Context& context, statedb::Transaction& transaction, const Vm::VmConfig& vm,
                    const ImageWish& wish, const model::VmImage& known);

// Returns what is wrong with the VM's image now, such as "must be a file"; empty: it can be used,
// as far as who asks can tell. `format`: what it is opened as, if that is fixed.
rt::String troubleWithImage(Context& context, const Vm::VmConfig& vm, const rt::String& format);
// What of a file that is there makes it no disk at all, whatever its rights are or come to be: it
// is a folder, too small, or of another program's format. What is not there yet may become one.
std::optional<rt::Problem> problemOfNamed(Context& context, const Vm::VmConfig& vm,
                                          const rt::String& format);
// Tells of what keeps the VM from being started with its image now; it may be mended by then.
// `format`: what it is opened as, if that is fixed.
void warnOfImage(Context& context, const Vm::VmConfig& vm, const rt::String& format);
// Tells of another VM that has the same disk, by its path: one of the two can run at a time.
void warnOfSharedImage(Context& context, const std::map<rt::String, Vm::VmConfig::Ptr>& all,
                       const Vm::VmConfig& vm);

}  // namespace ctl
