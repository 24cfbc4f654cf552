#include "model/VmFields.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "model/Tables.h"
#include "model/VmImage.h"
#include "model/VmLimits.h"
#include "model/VmPolicy.h"
#include "runtime/base/Check.h"
#include "runtime/base/Text.h"

namespace model {

namespace {

using Kind = VmField::Kind;

constexpr std::array<std::string_view, 2> truths{"true", "false"};
constexpr std::array<std::string_view, 2> formats{"raw", "qcow2"};

Right weightTextRight(std::string_view value, const MachineLimits&) {
  return weightRight(rt::fromText<uint32_t>(value).value_or(0));
}

constexpr VmField fields[] = {
    {.table = table::vmConfig,
     .name = "enabled",
     .kind = Kind::truth,
     .takesEffectAtOnce = true,
     .help = "true or false",
     .form = "must be true or false",
     .values = [] { return std::span<const std::string_view>(truths); }},
    {.table = table::vmConfig,
     .name = "diskImage",
     .kind = Kind::path,
     .help = "a path, of which an absolute one is made",
     .option = "disk",
     .optionValue = "FILE",
     .optionHelp = "the disk image to boot",
     .right = [](std::string_view value, const MachineLimits&) { return diskImageRight(value); }},
    {.table = table::vmImage,
     .name = "format",
     .help = "what the disk image is, raw or qcow2",
     .option = "format",
     .optionValue = "FORMAT",
     .optionHelp = "what the disk image is, raw or qcow2; by default what it begins as",
     .right = [](std::string_view value, const MachineLimits&) { return imageFormatRight(value); },
     .values = [] { return std::span<const std::string_view>(formats); }},
    {.table = table::vmConfig,
     .name = "memory",
     .kind = Kind::mebibytes,
     .help = "in MiB, or with K, M or G behind it",
     .option = "memory",
     .optionValue = "SIZE",
     .optionHelp = "in MiB, or with K, M or G behind it; 256 by default",
     .form = "must be a number of mebibytes, or one with K, M or G behind it that makes whole "
             "mebibytes",
     .right =
         [](std::string_view value, const MachineLimits& limits) {
           return memoryRight(rt::fromText<uint32_t>(value).value_or(0), limits);
         }},
    {.table = table::vmConfig,
     .name = "vncPort",
     .kind = Kind::number,
     .help = "5900 to 5910, or 0 for no display",
     .option = "vnc-port",
     .optionValue = "PORT",
     .optionHelp = "5900 to 5910, or 0 for no display, the default",
     .form = "must be 5900 to 5910, or 0 for no display",
     .right =
         [](std::string_view value, const MachineLimits&) {
           return vncPortRight(rt::fromText<uint32_t>(value).value_or(1));
         }},
    {.table = table::vmLimits,
     .name = "cpuWeight",
     .kind = Kind::number,
     .takesEffectAtOnce = true,
     .help = "its share of the processors beside other guests; 100 is usual",
     .form = "must be 1 to 10000; 100 is usual",
     .right = weightTextRight},
    {.table = table::vmLimits,
     .name = "cpuMax",
     .kind = Kind::processors,
     .takesEffectAtOnce = true,
     .help = "processors that it gets at most, such as 0.5; 0: as many as it wants",
     .form = "must be 0.05 to 1024 (processors) with two decimals at most, such as 1.5, or 0 for "
             "as many "
             "as it wants",
     .right =
         [](std::string_view value, const MachineLimits&) {
           return cpuMaxRight(Processors::fromText(value).value_or(Processors()));
         }},
    {.table = table::vmLimits,
     .name = "memoryReserve",
     .kind = Kind::mebibytes,
     .takesEffectAtOnce = true,
     .help = "memory for its QEMU beyond the usual; in MiB, or with K, M or G",
     .form = "must be a number of mebibytes, or one with K, M or G behind it that makes whole "
             "mebibytes",
     .right =
         [](std::string_view value, const MachineLimits& limits) {
           return memoryReserveRight(rt::fromText<uint32_t>(value).value_or(0), limits.memory);
         }},
    {.table = table::vmLimits,
     .name = "ioWeight",
     .kind = Kind::number,
     .takesEffectAtOnce = true,
     .help = "its share of what disks can do beside other guests; 100 is usual",
     .form = "must be 1 to 10000; 100 is usual",
     .right = weightTextRight},
    {.table = table::vmLimits,
     .name = "rateLimit",
     .kind = Kind::number,
     .takesEffectAtOnce = true,
     .help = "megabits a second that each of its cards sends at most; 0: all it can",
     .form = "must be 1 to 10000 (megabits a second), or 0 for all that its cards can send",
     .right =
         [](std::string_view value, const MachineLimits&) {
           return rateLimitRight(rt::fromText<uint32_t>(value).value_or(0));
         }},
    {.table = table::vmPolicy,
     .name = "restart",
     .takesEffectAtOnce = true,
     .help = "started again when its guest has ended: no, on-failure or always",
     .option = "restart",
     .optionValue = "WHEN",
     .optionHelp = "start it again when its guest ended: no (default), on-failure or always",
     .right = [](std::string_view value, const MachineLimits&) { return restartRight(value); },
     .values = [] { return std::span<const std::string_view>(restarts); }},
    {.table = table::vmPolicy,
     .name = "startOrder",
     .kind = Kind::number,
     .takesEffectAtOnce = true,
     .help = "its number in the order of starts at boot; 0: after all others",
     .form = "must be 1 to 9999, or 0 for after all others",
     .right =
         [](std::string_view value, const MachineLimits&) {
           return startOrderRight(rt::fromText<uint32_t>(value).value_or(0));
         }},
    {.table = table::vmPolicy,
     .name = "startDelay",
     .kind = Kind::number,
     .takesEffectAtOnce = true,
     .help = "seconds that the next in that order waits for it",
     .form = "must be 0 to 3600 (seconds)",
     .right =
         [](std::string_view value, const MachineLimits&) {
           return startDelayRight(rt::fromText<uint32_t>(value).value_or(0));
         }},
    {.table = table::vmPolicy,
     .name = "link",
     .takesEffectAtOnce = true,
     .help = "what it sees of its ports' lines: follow (what is so) or up",
     .right = [](std::string_view value, const MachineLimits&) { return linkRight(value); },
     .values = [] { return std::span<const std::string_view>(links); }},
    {.table = table::vmConfig,
     .name = "model",
     .isOfCard = true,
     .help = "a network card of QEMU's",
     .option = "model",
     .right = [](std::string_view value, const MachineLimits&) { return modelRight(value); },
     .values = nicModels},
    {.table = table::vmConfig,
     .name = "macAddr",
     .kind = Kind::macAddr,
     .isOfCard = true,
     .help = "a unicast MAC address",
     .option = "mac",
     .form = "must be a MAC address, such as 52:54:00:12:34:56",
     .right =
         [](std::string_view value, const MachineLimits&) {
           return macAddrRight(rt::EthAddr::fromText(value).value_or(rt::EthAddr()));
         }},
    {.table = table::vmConfig,
     .name = "intfName",
     .isOfCard = true,
     .takesEffectAtOnce = true,
     .help = "the switch interface it is bridged to",
     .option = "intf",
     .right = [](std::string_view value, const MachineLimits&) { return intfNameRight(value); }},
};

const VmField* fieldNamed(std::string_view name, bool isOfCard) {
  const auto found = std::find_if(std::begin(fields), std::end(fields), [&](const VmField& field) {
    return field.isOfCard == isOfCard && field.name == name;
  });
  return found == std::end(fields) ? nullptr : &*found;
}

const rt::AttributeInfo& attributeOf(const rt::Entity& record, const VmField& field) {
  const rt::AttributeInfo* const attribute = record.type().find(field.name);
  rt::check(attribute && attribute->textIs, "a field is an attribute of its record");
  return *attribute;
}

}  // namespace

std::span<const VmField> vmFields() { return fields; }

const VmField* vmFieldNamed(std::string_view name) { return fieldNamed(name, false); }
const VmField* cardFieldNamed(std::string_view name) { return fieldNamed(name, true); }

rt::String valueOf(const rt::Entity& record, const VmField& field) {
  return attributeOf(record, field).text(record);
}

bool valueIs(rt::Entity& record, const VmField& field, const rt::String& typed) {
  rt::String text = typed;
  if (field.kind == Kind::mebibytes) {
    const auto mebibytes = mebibytesOf(typed);
    if (!mebibytes) return false;
    text = rt::toText(*mebibytes);
  }
  try {
    attributeOf(record, field).textIs(record, text);
  } catch (const rt::AttributeException&) {
    return false;
  }
  return true;
}

std::vector<rt::Problem> fieldProblems(const rt::Entity& record, std::string_view table,
                                       const MachineLimits& limits) {
  std::vector<rt::Problem> problems;
  for (const VmField& field : fields) {
    if (field.table != table || !field.right) continue;
    const rt::String value = valueOf(record, field);
    if (const Right right = field.right(value, limits))
      problems.push_back({field.name, value, *right});
  }
  return problems;
}

std::optional<uint32_t> mebibytesOf(std::string_view text) {
  constexpr double kibi = 1024;
  const std::string_view letters = "KkMmGg";
  const size_t letter = text.empty() ? std::string_view::npos : letters.find(text.back());
  if (letter != std::string_view::npos) text.remove_suffix(1);
  const double unit = letter < 2 ? 1 / kibi : letter == 4 || letter == 5 ? kibi : 1;  // mebibytes
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  if (text.empty() || !isDigit(text.front()) || !isDigit(text.back())) return std::nullopt;
  if (text.find_first_not_of("0123456789.") != std::string_view::npos) return std::nullopt;
  const auto number = rt::numberFromText<double>(text);
  if (!number) return std::nullopt;
  const double mebibytes = *number * unit;  // exact, where it is whole
  if (mebibytes != std::floor(mebibytes) || mebibytes > std::numeric_limits<uint32_t>::max())
    return std::nullopt;
  return static_cast<uint32_t>(mebibytes);
}

}  // namespace model
