#pragma once

#include <string>

#include "core/Error.h"

namespace tapekeep {

// Why the scan of a mounted card found no answer. description() is the text the user reads.
class EditLiveScanError : public Error {
public:
    enum class Kind { unreadableSong, unsafeSampleReference };

    static EditLiveScanError unreadableSong(const std::string& path) {
        return {Kind::unreadableSong, "Could not read live song metadata: " + path};
    }
    static EditLiveScanError unsafeSampleReference(const std::string& song, const std::string& sample) {
        return {Kind::unsafeSampleReference,
                "Could not safely resolve sample reference '" + sample + "' in " + song};
    }

    [[nodiscard]] Kind kind() const { return kind_; }

private:
    EditLiveScanError(Kind kind, const std::string& text) : Error(text), kind_(kind) {}

    Kind kind_;
};

}  // namespace tapekeep
