#pragma once

#include "core/Error.h"

namespace tapekeep {

// Why an export refused to publish its output. description() is the text the user reads.
class AtomicFileExportError : public Error {
public:
    enum class Kind { sourceAndDestinationAreSame, sourceChangedDuringExport, outputMissing };

    static AtomicFileExportError sourceAndDestinationAreSame() {
        return {Kind::sourceAndDestinationAreSame, "Refusing to overwrite the export source."};
    }
    static AtomicFileExportError sourceChangedDuringExport() {
        return {Kind::sourceChangedDuringExport, "The export source changed while it was being read."};
    }
    static AtomicFileExportError outputMissing() {
        return {Kind::outputMissing, "The export did not produce an output file."};
    }

    [[nodiscard]] Kind kind() const { return kind_; }

private:
    AtomicFileExportError(Kind kind, const char* text) : Error(text), kind_(kind) {}

    Kind kind_;
};

}  // namespace tapekeep
