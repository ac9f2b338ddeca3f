#include "workflows/RestoreStep.h"

namespace tapekeep {

const char* RestoreStep::rawValue(Kind kind) {
    switch (kind) {
        case Kind::selectTarget:
            return "selectTarget";
        case Kind::selectSet:
            return "selectSet";
        case Kind::selectVersion:
            return "selectVersion";
        case Kind::selectFolders:
            return "selectFolders";
        case Kind::confirm:
            return "confirm";
        case Kind::previewDiff:
            return "previewDiff";
        case Kind::running:
            return "running";
        case Kind::done:
            return "done";
    }
    return "";
}

}  // namespace tapekeep
