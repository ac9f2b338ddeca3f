#pragma once

#include <string>
#include <string_view>

namespace tapekeep::BlkidOutputParser {

// The value of the "UUID=" line of "blkid -o export <device>", with blkid's backslash escapes
// undone; empty when there is none (UUID_SUB and PARTUUID are other keys).
std::string uuid(std::string_view exportOutput);

}  // namespace tapekeep::BlkidOutputParser
