#pragma once

#include "core/Error.h"

namespace tapekeep {

// Why the list of songs that use a sample could not be written. description() is the text the
// user reads.
class SampleSongListError : public Error {
public:
    enum class Kind { desktopUnavailable };

    static SampleSongListError desktopUnavailable() {
        return {Kind::desktopUnavailable, "Desktop not available"};
    }

    [[nodiscard]] Kind kind() const { return kind_; }

private:
    SampleSongListError(Kind kind, const char* text) : Error(text), kind_(kind) {}

    Kind kind_;
};

}  // namespace tapekeep
