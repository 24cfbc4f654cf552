#include "host/database/ImageRows.h"

#include "host/base/Problems.h"
#include "host/base/Report.h"
#include "model/Tables.h"
#include "model/VmImage.h"
#include "statedb/EntityDocument.h"

namespace host {

namespace {

std::vector<rt::Problem> problemsOf(const rt::Entity& read) {
  const auto& image = static_cast<const model::VmImage&>(read);
  const auto right = model::imageFormatRight(image.format());
  if (!right) return {};
  return {{"format", image.format(), *right}};
}

rt::String documentOf(const rt::String& vm, const rt::String& path, guest::ImageFormat format) {
  const auto image = rt::make<model::VmImage>(vm);
  image->diskImageIs(path);
  image->formatIs(guest::textOf(format));
  return statedb::documentOf(*image);
}

}  // namespace

void ImageRows::rowIs(const rt::String& vm, const std::optional<statedb::Record>& row) {
  rows_.erase(vm);
  if (!row) return;
  Row& known = rows_[vm];
  known.revision = row->revision;
  const auto image = rt::make<model::VmImage>(vm);
  const auto problems = statedb::fill(*image, row->doc, {.check = problemsOf});
  if (!problems.empty())
    known.problem = rt::String(model::table::vmImage) + ": " + textOf(problems);
  known.path = image->diskImage();
  known.format = guest::imageFormatFrom(image->format());
  if (const auto own = own_.find(vm); own != own_.end() && own->second.path == known.path)
    own_.erase(own);
}

void ImageRows::rowIsLost(const rt::String& vm) {
  const auto row = rows_.find(vm);
  if (row == rows_.end()) return;
  if (row->second.format) own_[vm] = {row->second.path, *row->second.format, false};
  rows_.erase(row);
}

rt::String ImageRows::problem(const rt::String& vm) const {
  const auto row = rows_.find(vm);
  return row == rows_.end() ? rt::String() : row->second.problem;
}

std::optional<guest::ImageFormat> ImageRows::format(const rt::String& vm,
                                                    const rt::String& path) const {
  if (const auto row = rows_.find(vm); row != rows_.end() && row->second.path == path)
    return row->second.format;
  if (const auto own = own_.find(vm); own != own_.end() && own->second.path == path)
    return own->second.format;
  return std::nullopt;
}

bool ImageRows::formatIs(const rt::String& vm, const rt::String& path, guest::ImageFormat format) {
  const auto row = rows_.find(vm);
  if (row != rows_.end() && row->second.path == path) return true;
  if (own_[vm].path != path) own_[vm] = {path, format, false};
  Own& own = own_[vm];
  if (own.isWritten) return true;
  try {
    db_.commit(statedb::Transaction()
                   .guard(model::table::vmImage, vm, row == rows_.end() ? 0 : row->second.revision)
                   .put(model::table::vmImage, vm, documentOf(vm, path, own.format)));
    own.isWritten = true;
    trouble_ = {};
  } catch (const statedb::ConflictError&) {
    return false;
  } catch (const statedb::Error& error) {
    if (std::exchange(trouble_, error.what()) != error.what())
      report(rt::String("what disk images are cannot be written down: ") + error.what());
  }
  return true;
}

}  // namespace host
