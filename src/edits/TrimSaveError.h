#pragma once

#include "core/Error.h"

namespace tapekeep {

// Why a trim saved outside the staging flow was refused. description() is the text the user reads.
class TrimSaveError : public Error {
public:
    enum class Kind { overwritesOriginal };

    static TrimSaveError overwritesOriginal() {
        return {Kind::overwritesOriginal,
                "Refusing to overwrite the original sample. Choose a different name."};
    }

    [[nodiscard]] Kind kind() const { return kind_; }

private:
    TrimSaveError(Kind kind, const char* text) : Error(text), kind_(kind) {}

    Kind kind_;
};

}  // namespace tapekeep
