#pragma once

#include <stop_token>
#include <string>
#include <vector>

namespace tapekeep {

// Two open files read from their positions to their ends, a buffer's worth at a time, so that large
// files cost constant memory: true when they hold the same bytes, no fewer and no more. Stops at the
// first block that differs; cancellation is checked before each block. The buffers are the caller's
// so that a walk over many files reuses them; they must be of one size above zero. Throws
// PosixError naming the file's context, or Cancelled. Any thread, one at a time per descriptor.
[[nodiscard]] bool sameBytesToEnd(int first, const std::string& firstContext, std::vector<char>& firstBuffer,
                                  int second, const std::string& secondContext,
                                  std::vector<char>& secondBuffer, const std::stop_token& token);

}  // namespace tapekeep
