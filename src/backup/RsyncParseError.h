#pragma once

#include <string>

#include "core/Error.h"

namespace tapekeep {

// Why rsync's itemised change lines could not be read. The parser itself raises only
// unsupportedVersion: a line that does not fit is skipped, never an error; malformed is for
// callers that want to refuse such a line themselves.
class RsyncParseError : public Error {
public:
    enum class Kind { unsupportedVersion, malformed };

    // "Unsupported rsync version: {first line of raw}", or "Unsupported rsync version." when
    // raw is empty. raw() keeps the whole text.
    static RsyncParseError unsupportedVersion(const std::string& raw) {
        const std::string firstLine = raw.substr(0, raw.find('\n'));
        RsyncParseError error(Kind::unsupportedVersion, firstLine.empty()
                                                            ? "Unsupported rsync version."
                                                            : "Unsupported rsync version: " + firstLine);
        error.raw_ = raw;
        return error;
    }
    // "Malformed rsync output at line {lineNumber}: {reason}"
    static RsyncParseError malformed(int lineNumber, const std::string& reason) {
        RsyncParseError error(Kind::malformed,
                              "Malformed rsync output at line " + std::to_string(lineNumber) + ": " + reason);
        error.lineNumber_ = lineNumber;
        error.reason_ = reason;
        return error;
    }

    [[nodiscard]] Kind kind() const { return kind_; }
    [[nodiscard]] const std::string& raw() const { return raw_; }        // unsupportedVersion only
    [[nodiscard]] int lineNumber() const { return lineNumber_; }         // malformed only
    [[nodiscard]] const std::string& reason() const { return reason_; }  // malformed only

private:
    RsyncParseError(Kind kind, const std::string& text) : Error(text), kind_(kind) {}

    Kind kind_;
    std::string raw_;
    int lineNumber_ = 0;
    std::string reason_;
};

}  // namespace tapekeep
