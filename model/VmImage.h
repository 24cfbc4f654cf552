// A row of vmImage: what QEMU is told that a VM's disk image is.
#pragma once

#include "guest/ImageHeader.h"
#include "runtime/base/Problem.h"
#include "runtime/entity/EntityOf.h"

namespace model {

// Fixed when the image is named, for afterwards its bytes are the guest's. Written by operators;
// by the daemon where nobody has.
class VmImage final : public rt::EntityOf<VmImage> {
 public:
  explicit VmImage(rt::String name) : name_(std::move(name)) {}

  const rt::String& name() const { return name_; }  // the VM's

  // Of which image the format is: a row of another one says nothing.
  const rt::String& diskImage() const { return diskImage_; }
  void diskImageIs(const rt::String& path) { assign<&VmImage::diskImage>(diskImage_, path); }

  // "raw" or "qcow2".
  const rt::String& format() const { return format_; }
  void formatIs(const rt::String& format) { assign<&VmImage::format>(format_, format); }

  static constexpr std::string_view typeName = "model::VmImage";
  using Attributes =
      rt::AttributeTable<rt::Attribute<"name", &VmImage::name>,
                         rt::Attribute<"diskImage", &VmImage::diskImage, &VmImage::diskImageIs>,
                         rt::Attribute<"format", &VmImage::format, &VmImage::formatIs>>;

 private:
  const rt::String name_;
  rt::String diskImage_;
  rt::String format_;
};

// What would be right, when `value` is not.
inline std::optional<rt::String> imageFormatRight(std::string_view value) {
  return guest::imageFormatFrom(value) ? std::nullopt
                                       : std::optional(rt::String("must be raw or qcow2"));
}

}  // namespace model
