#include "ctl/verbs/Images.h"

#include <cerrno>

#include "model/DiskImage.h"
#include "model/Tables.h"
#include "model/VmImage.h"
#include "statedb/EntityDocument.h"

namespace ctl {

namespace {

void complain(Context& context, const Vm::VmConfig& vm, const rt::String& what) {
  context.complain(vm.name() + ": warning: the disk image '" + vm.diskImage() + "' " + what);
}

std::optional<rt::Problem> problemOf(const Vm::VmConfig& vm, const model::ImageFacts& facts,
                                     const rt::String& format) {
  const auto fixed = guest::imageFormatFrom(format);
  return fixed ? model::imageProblem(vm.diskImage(), facts, *fixed)
               : model::imageProblem(vm.diskImage(), facts);
}

}  // namespace

rt::String putImage(Context& context, statedb::Transaction& transaction, const Vm::VmConfig& vm,
                    const ImageWish& wish, const model::VmImage& known) {
  rt::String format = wish.format;
  if (format.empty()) {
    if (known.diskImage() == vm.diskImage()) return known.format();
    if (!wish.isNamedNow) return {};
    const auto detected = model::detectedFormat(context.imageFacts(vm.diskImage()));
    // What was said of another image is not to be found should that be named again.
    if (!detected) transaction.del(model::table::vmImage, vm.name());
    if (!detected) return {};
    format = guest::textOf(*detected);
  }
  const auto image = rt::make<model::VmImage>(vm.name());
  image->diskImageIs(vm.diskImage());
  image->formatIs(format);
  transaction.put(model::table::vmImage, vm.name(), statedb::documentOf(*image));
  return format;
}

rt::String troubleWithImage(Context& context, const Vm::VmConfig& vm, const rt::String& format) {
  const model::ImageFacts facts = context.imageFacts(vm.diskImage());
  if (facts.error == EACCES) return {};  // the daemon, which is root, may read it all the same
  const auto problem = problemOf(vm, facts, format);
  return problem ? problem->right : rt::String();
}

std::optional<rt::Problem> problemOfNamed(Context& context, const Vm::VmConfig& vm,
                                          const rt::String& format) {
  const model::ImageFacts facts = context.imageFacts(vm.diskImage());
  if (facts.error != 0) return std::nullopt;
  if (auto problem = model::accessProblem(vm.diskImage(), facts)) return problem;
  if (!format.empty() || model::detectedFormat(facts)) return std::nullopt;
  return model::imageProblem(vm.diskImage(), facts);
}

void warnOfImage(Context& context, const Vm::VmConfig& vm, const rt::String& format) {
  if (const rt::String trouble = troubleWithImage(context, vm, format); !trouble.empty())
    return complain(context, vm, "cannot be used now: it " + trouble);
  const model::ImageFacts facts = context.imageFacts(vm.diskImage());
  if (facts.error == EACCES) return;
  const auto fixed = guest::imageFormatFrom(format);
  const rt::String other = fixed ? model::otherFormat(facts, *fixed) : rt::String();
  if (!other.empty())
    complain(context, vm, "is opened as " + format + ", though it begins as " + other + " does");
  // A guest that runs is whom it is in use by.
  if (facts.isInUse && !facts.isCd && vmNamed(context, vm.name()).process->process() == "none")
    complain(context, vm,
             "cannot be used now: the machine has it mounted, or made it part of something else");
}

void warnOfSharedImage(Context& context, const std::map<rt::String, Vm::VmConfig::Ptr>& all,
                       const Vm::VmConfig& vm) {
  for (const auto& [name, other] : all) {
    if (name == vm.name() || other->diskImage() != vm.diskImage()) continue;
    if (context.imageFacts(vm.diskImage()).isCd) return;  // which any number may read
    return complain(context, vm, "is VM '" + name + "'s, too: one of the two can run at a time");
  }
}

}  // namespace ctl
