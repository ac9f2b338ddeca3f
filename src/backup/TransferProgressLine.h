#pragma once

#include <cstdint>
#include <optional>

namespace tapekeep {

// One running progress line of rsync's --info=progress2 output, as parseProgressLine reads it:
// "  1,234,567  45%  1.23MB/s  0:00:10 (xfr#3, to-chk=7/10)". A plain value.
struct TransferProgressLine {
    // Which kind of "-chk=" the line carried: "ir" while rsync still builds its file list
    // (incremental recursion), "to" once the list is complete.
    enum class CheckKind { ir, to, none };

    std::int64_t transferredBytes = 0;  // first column, suffix applied, truncated
    int percent = 0;                    // 0 to 100
    CheckKind checkKind = CheckKind::none;
    std::optional<std::int64_t> remaining;         // first number of "-chk="
    std::optional<std::int64_t> total;             // second number of "-chk="
    std::optional<std::int64_t> transferredFiles;  // the number after "xfr#"

    friend bool operator==(const TransferProgressLine&, const TransferProgressLine&) = default;
};

}  // namespace tapekeep
