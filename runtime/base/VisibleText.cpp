#include "runtime/base/VisibleText.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace rt {

namespace {

unsigned byteAt(std::string_view text, size_t i) { return static_cast<unsigned char>(text[i]); }

bool isContinuation(unsigned byte) { return (byte & 0xc0U) == 0x80; }

// Of a character that begins so; 0 when none does.
size_t lengthFrom(unsigned lead) {
  if (lead < 0x80) return 1;
  if (lead < 0xc2 || lead > 0xf4) return 0;
  return lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
}

// Of one whole character.
uint32_t codePointOf(std::string_view character) {
  const unsigned lead = byteAt(character, 0);
  uint32_t code = character.size() == 1 ? lead : lead & (0x7fU >> character.size());
  for (size_t i = 1; i < character.size(); ++i) code = code << 6U | (byteAt(character, i) & 0x3fU);
  return code;
}

bool isControl(uint32_t code) { return code < 0x20 || (code >= 0x7f && code < 0xa0); }

// Marks of direction, embeddings, overrides and isolates; ends of a line and of a paragraph.
bool changesLines(uint32_t code) {
  return code == 0x061c || code == 0x200e || code == 0x200f || (code >= 0x2028 && code <= 0x202e) ||
         (code >= 0x2066 && code <= 0x2069);
}

void appendHex(std::string& out, const char* format, uint32_t number) {
  char digits[16];
  std::snprintf(digits, sizeof digits, format, number);
  out += digits;
}

void appendBytes(std::string& out, std::string_view bytes) {
  for (size_t i = 0; i < bytes.size(); ++i) appendHex(out, "\\x%02x", byteAt(bytes, i));
}

}  // namespace

size_t characterLength(std::string_view text) {
  if (text.empty()) return 0;
  const unsigned lead = byteAt(text, 0);
  const size_t length = lengthFrom(lead);
  if (length <= 1) return length;
  if (text.size() < length) return 0;
  for (size_t i = 1; i < length; ++i)
    if (!isContinuation(byteAt(text, i))) return 0;
  // Forms that are longer than need be, halves of surrogate pairs, and what is past U+10FFFF.
  const unsigned second = byteAt(text, 1);
  const bool bad = (lead == 0xe0 && second < 0xa0) || (lead == 0xed && second >= 0xa0) ||
                   (lead == 0xf0 && second < 0x90) || (lead == 0xf4 && second >= 0x90);
  return bad ? 0 : length;
}

size_t unfinishedLength(std::string_view text) {
  for (size_t back = 1; back <= std::min<size_t>(3, text.size()); ++back) {
    const unsigned byte = byteAt(text, text.size() - back);
    if (!isContinuation(byte)) return lengthFrom(byte) > back ? back : 0;
  }
  return 0;
}

std::string visibleText(std::string_view text, std::string_view kept) {
  // Nearly all text is printable, and passes at once.
  if (std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c < 0x7f; }))
    return std::string(text);
  std::string out;
  while (!text.empty()) {
    const size_t length = characterLength(text);
    const std::string_view character = text.substr(0, std::max<size_t>(length, 1));
    const uint32_t code = length == 0 ? 0 : codePointOf(character);
    const bool isKept = length == 1 && kept.find(text[0]) != std::string_view::npos;
    if (length == 0 || (isControl(code) && !isKept))
      appendBytes(out, character);
    else if (changesLines(code))
      appendHex(out, "\\u%04x", code);
    else
      out += character;
    text.remove_prefix(character.size());
  }
  return out;
}

}  // namespace rt
