#include "ctl/line/Moments.h"

#include <array>
#include <ctime>
#include <optional>

#include "ctl/line/Exit.h"
#include "runtime/base/Text.h"

namespace ctl {

namespace {

constexpr uint64_t day = 24 * 60 * 60;

struct Unit {
  char letter;
  uint64_t seconds;
};
constexpr std::array units{Unit{'s', 1}, Unit{'m', 60}, Unit{'h', 3600}, Unit{'d', day}};

tm localParts(uint64_t moment) {
  const auto seconds = static_cast<time_t>(moment);
  tm parts{};
  (void)localtime_r(&seconds, &parts);
  return parts;
}

uint64_t momentAt(tm parts) {
  parts.tm_isdst = -1;
  const time_t moment = std::mktime(&parts);
  return moment < 0 ? 0 : static_cast<uint64_t>(moment);
}

uint64_t midnightOf(uint64_t moment) {
  tm parts = localParts(moment);
  parts.tm_hour = parts.tm_min = parts.tm_sec = 0;
  return momentAt(parts);
}

std::optional<uint64_t> agoOf(std::string_view text, uint64_t now) {
  if (text.starts_with('-')) text.remove_prefix(1);
  if (text.size() < 2) return std::nullopt;
  const auto number = rt::fromText<uint64_t>(rt::String(text.substr(0, text.size() - 1)));
  for (const Unit& unit : units)
    if (number && unit.letter == text.back() && *number <= now / unit.seconds)
      return now - *number * unit.seconds;
  return std::nullopt;
}

// By one of the forms, all of the text; what the form leaves out is as in `parts`.
std::optional<uint64_t> writtenAs(const char* form, const rt::String& text, tm parts) {
  const char* const end = strptime(text.charPtr(), form, &parts);
  if (!end || *end != '\0') return std::nullopt;
  return momentAt(parts);
}

std::optional<uint64_t> writtenOut(const rt::String& text, uint64_t now) {
  const tm today = localParts(midnightOf(now));
  for (const char* const form : {"%H:%M", "%H:%M:%S"})
    if (const auto moment = writtenAs(form, text, today))
      return *moment > now ? *moment - day : *moment;
  for (const char* const form : {"%Y-%m-%d", "%Y-%m-%d %H:%M", "%Y-%m-%d %H:%M:%S"})
    if (const auto moment = writtenAs(form, text, today)) return moment;
  return std::nullopt;
}

std::optional<uint64_t> named(const rt::String& text, uint64_t now, uint64_t booted) {
  if (text == "today") return midnightOf(now);
  if (text == "yesterday") return midnightOf(midnightOf(now) - day / 2);
  if (text == "boot" && booted != 0) return booted;
  if (text.size() > 1 && text.str()[0] == '@')
    return rt::fromText<uint64_t>(rt::String(std::string_view(text).substr(1)));
  return std::nullopt;
}

}  // namespace

uint64_t momentOf(const rt::String& text, uint64_t now, uint64_t booted) {
  auto moment = named(text, now, booted);
  if (!moment) moment = agoOf(text, now);
  if (!moment) moment = writtenOut(text, now);
  if (!moment)
    throw Refusal(Exit::usage,
                  "--since: '" + text +
                      "' is refused: must be as 90s, 1h, 2d, 23:50, '2026-11-21 23:50', "
                      "today, yesterday, boot or @SECONDS");
  if (*moment > now)
    throw Refusal(Exit::usage, "--since: '" + text + "' is refused: it is still to come");
  return *moment;
}

rt::String clockText(uint64_t moment, uint64_t now) {
  const tm parts = localParts(moment);
  const bool isToday = midnightOf(moment) == midnightOf(now);
  char text[32] = "";
  (void)std::strftime(text, sizeof text, isToday ? "%H:%M:%S" : "%Y-%m-%d %H:%M:%S", &parts);
  return text;
}

}  // namespace ctl
