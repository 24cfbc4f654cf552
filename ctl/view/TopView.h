// What guests take, as people and programs read it. Pure.
#pragma once

#include "ctl/line/Context.h"
#include "ctl/view/GuestLoad.h"

namespace ctl {

// What there is for all guests together.
struct MachineShare {
  double processors = 0;
  uint64_t memory = 0;  // bytes; 0: unknown
};

struct TopPicture {
  const Sample& sample;
  const std::vector<GuestRates>& rates;  // of each guest
  MachineShare share;
  bool isStale = false;
};

// "3 guests: 0.21 of 4 processors, 412 of 18,078 MiB".
rt::String topHead(const TopPicture& picture);
// The busiest first. `format`: wide has a line for each card, too.
Table topTable(const TopPicture& picture, Format format, const TableStyle& style);
// All that a screen has room for, and no line that it has not.
rt::String topScreen(const TopPicture& picture, Format format, const TableStyle& style,
                     size_t lines);
// A document in one line, without its end.
rt::String topJson(const TopPicture& picture, Rate interval);

// "0", "12k", "1.2M": of four characters at most; k is 1000.
rt::String amountText(double amount);

}  // namespace ctl
