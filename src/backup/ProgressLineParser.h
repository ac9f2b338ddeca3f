#pragma once

#include <optional>
#include <string_view>

#include "backup/TransferProgressLine.h"

namespace tapekeep {

// Reads one line of rsync output as a --info=progress2 line. The whole line must have the form
//   ^\s*([\d,]+(?:\.\d+)?)([KMGTP]?)\s+(\d{1,3})%\s+[\d.,]+[kKMGTP]?B\/s\s+
//   (?:\d+:\d{2}:\d{2}|\?\?:\?\?:\?\?)(?:\s+\(xfr#(\d+),\s+(ir|to)-chk=(\d+)\/(\d+)\))?\s*$
// (\s being ASCII white space, \d an ASCII digit). The byte count loses its commas, is read as a
// floating-point number, scaled by the decimal suffix and truncated; a count at or above
// 9.223372036854776e18, or a percentage above 100, makes the line no progress line. A number of
// the parenthesis that does not fit 64 bits is absent on its own. Pure; any thread. This runs for
// every line of every backup, so it is a hand-written matcher rather than a regular expression.
std::optional<TransferProgressLine> parseProgressLine(std::string_view line);

// True for the lines of rsync's progress display, including those that parseProgressLine refuses
// (a percentage of 101, an unusual tail): any line holding "ir-chk=" or "to-chk=", or one that
// begins like  ^\s*[\d.,]+[KMGTP]?\s+\d{1,3}%\s  . Such lines are dropped rather than logged.
// Pure; any thread.
bool isProgressNoise(std::string_view line);

}  // namespace tapekeep
