#pragma once

#include <string>

#include "core/Error.h"

namespace tapekeep {

// Why a card path or a name of the edit storage was refused, or why a copy differs from its source.
// The payload is the whole string that was tested.
class EditPathValidatorError : public Error {
public:
    enum class Kind {
        notRooted,
        containsTraversal,
        emptyComponent,
        nullByte,
        driveLetter,
        invalidComponent,
        contentsDiffer
    };

    static EditPathValidatorError notRooted(const std::string& path) {
        return {Kind::notRooted, "Path must start with '/': " + path};
    }
    static EditPathValidatorError containsTraversal(const std::string& path) {
        return {Kind::containsTraversal, "Path contains '..': " + path};
    }
    static EditPathValidatorError emptyComponent(const std::string& path) {
        return {Kind::emptyComponent, "Path has empty component (e.g. //): " + path};
    }
    static EditPathValidatorError nullByte(const std::string& path) {
        return {Kind::nullByte, "Path contains null byte: " + path};
    }
    static EditPathValidatorError driveLetter(const std::string& path) {
        return {Kind::driveLetter, "Path has Windows drive letter: " + path};
    }
    static EditPathValidatorError invalidComponent(const std::string& name) {
        return {Kind::invalidComponent, "Invalid path component: " + name};
    }
    static EditPathValidatorError contentsDiffer() {
        return {Kind::contentsDiffer, "Copied content does not match the source file."};
    }

    [[nodiscard]] Kind kind() const { return kind_; }

private:
    EditPathValidatorError(Kind kind, const std::string& text) : Error(text), kind_(kind) {}

    Kind kind_;
};

}  // namespace tapekeep
