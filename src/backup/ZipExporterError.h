#pragma once

#include <cstdint>
#include <string>

#include "core/Error.h"

namespace tapekeep {

// Why a ZIP export failed. description() is the text the user reads.
class ZipExporterError : public Error {
public:
    enum class Kind { commandFailed, destinationInsideSource };

    // The archive could not be written; the status is what the archiver reported (1 for any
    // failure to read the folder or to write the archive).
    static ZipExporterError commandFailed(std::int32_t status) {
        return {Kind::commandFailed, "ZIP export failed (exit code " + std::to_string(status) + ").", status};
    }
    static ZipExporterError destinationInsideSource() {
        return {Kind::destinationInsideSource, "Choose a ZIP destination outside the folder being exported.",
                0};
    }

    [[nodiscard]] Kind kind() const { return kind_; }
    [[nodiscard]] std::int32_t status() const { return status_; }

private:
    ZipExporterError(Kind kind, const std::string& text, std::int32_t status)
        : Error(text), kind_(kind), status_(status) {}

    Kind kind_;
    std::int32_t status_;
};

}  // namespace tapekeep
