#include "workflows/CardState.h"

namespace tapekeep {

const char* CardState::rawValue(Kind kind) {
    switch (kind) {
        case Kind::idle:
            return "idle";
        case Kind::confirming:
            return "confirming";
        case Kind::running:
            return "running";
        case Kind::success:
            return "success";
        case Kind::failed:
            return "failed";
        case Kind::autoBackupCountdown:
            return "autoBackupCountdown";
    }
    return "";
}

}  // namespace tapekeep
