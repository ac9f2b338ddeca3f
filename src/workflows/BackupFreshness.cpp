#include "workflows/BackupFreshness.h"

#include "core/Formatting.h"

namespace tapekeep {

std::string BackupFreshness::label() const {
    switch (kind) {
        case Kind::checking:
            return "CHECKING";
        case Kind::noBackup:
            return "NO BACKUP YET";
        case Kind::upToDate:
            return "UP TO DATE";
        case Kind::changes:
            break;
    }
    const int total = added + modified + deleted;
    return formatWithThousandsSeparator(total) + (total == 1 ? " CHANGE" : " CHANGES");
}

}  // namespace tapekeep
