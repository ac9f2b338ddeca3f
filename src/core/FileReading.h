#pragma once

#include <cstddef>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

namespace tapekeep {

// What a whole-file read accepts. The defaults read whatever the path names, through links.
struct FileReadOptions {
    bool followSymbolicLinks = true;  // false: a link fails with ELOOP instead of being read through
    bool regularFileOnly = false;  // true: anything else fails unread (EISDIR, EINVAL); a FIFO never blocks
    std::size_t largestSize = std::numeric_limits<std::size_t>::max();  // a larger file fails with EFBIG
};

// The whole file, every call retried on EINTR: as many bytes as the file held when it was opened, or,
// where the system reports no size (files in /proc), everything up to its end. A file larger than the
// limit is refused unread where its size is known. Throws PosixError naming the file. Any thread.
[[nodiscard]] std::string readWholeFile(const std::filesystem::path& file,
                                        const FileReadOptions& options = {});

// The same in a buffer that ends exactly where the file does (no terminator, no small-string storage),
// so that a sanitizer sees any read one byte too far.
[[nodiscard]] std::vector<char> readWholeFileBytes(const std::filesystem::path& file,
                                                   const FileReadOptions& options = {});

// Reads until `size` bytes are in the buffer or the file ends; the count is smaller only at the end.
// Every read is retried on EINTR. Throws PosixError naming `context`. Any thread, one at a time per
// descriptor.
std::size_t readFully(int fd, char* buffer, std::size_t size, const std::string& context);

// Everything from the descriptor's position to its end, for a file that stays open between reads.
// Throws PosixError naming `context`. Any thread, one at a time per descriptor.
[[nodiscard]] std::string readToEnd(int fd, const std::string& context);

}  // namespace tapekeep
