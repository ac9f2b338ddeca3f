#pragma once

#include <optional>
#include <string>

#include "backup/RestoreError.h"

namespace tapekeep {

// Where the restore wizard stands, in the order of its pages; done carries the run's result.
struct RestoreStep {
    enum class Kind {
        selectTarget,
        selectSet,
        selectVersion,
        selectFolders,
        confirm,
        previewDiff,
        running,
        done
    };

    Kind kind = Kind::selectTarget;
    std::optional<std::string> error;             // done only: absent for a success, else its text
    std::optional<RestoreError::Kind> errorKind;  // done only: the case, when the error is a RestoreError

    static RestoreStep at(Kind kind) { return {kind, std::nullopt, std::nullopt}; }
    static RestoreStep succeeded() { return {Kind::done, std::nullopt, std::nullopt}; }
    static RestoreStep failed(const RestoreError& error) {
        return {Kind::done, error.description(), error.kind()};
    }
    static RestoreStep failed(std::string text) { return {Kind::done, std::move(text), std::nullopt}; }

    [[nodiscard]] bool isSuccess() const { return kind == Kind::done && !error; }
    [[nodiscard]] bool isCancelled() const { return errorKind == RestoreError::Kind::cancelled; }

    // "selectTarget", …, "done".
    static const char* rawValue(Kind kind);

    bool operator==(const RestoreStep&) const = default;
};

}  // namespace tapekeep
