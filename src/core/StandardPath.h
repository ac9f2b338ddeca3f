#pragma once

#include <filesystem>

namespace tapekeep {

// A path made absolute against the working folder, without ".", ".." or a trailing separator;
// symbolic links are not resolved. Two spellings of one place ("card/", "card/./") compare equal in
// this form, and a link named without a trailing "/" stays the link rather than what it points to.
std::filesystem::path standardized(const std::filesystem::path& path);

}  // namespace tapekeep
