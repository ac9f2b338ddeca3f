#pragma once

#include <optional>
#include <string_view>

namespace tapekeep {

// The long operations that need a card to themselves.
enum class OperationKind { backup, restore, browse };

// "backup", "restore", "browse": the controllers put these words into their messages.
constexpr std::string_view rawValue(OperationKind kind) {
    switch (kind) {
        case OperationKind::backup:
            return "backup";
        case OperationKind::restore:
            return "restore";
        case OperationKind::browse:
            return "browse";
    }
    return "";
}

constexpr std::optional<OperationKind> operationKindFromRawValue(std::string_view raw) {
    for (OperationKind kind : {OperationKind::backup, OperationKind::restore, OperationKind::browse})
        if (rawValue(kind) == raw) return kind;
    return std::nullopt;
}

}  // namespace tapekeep
