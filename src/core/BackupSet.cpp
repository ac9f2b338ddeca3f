#include "core/BackupSet.h"

#include <algorithm>

namespace tapekeep {

std::string backupSetFolderName(const std::string& volumeName, const std::string& diskUtilUUID) {
    // A FAT UUID reads "4C3C-645B": without its dash, the last 8 characters are all 8 hex digits,
    // so two cards that differ only in the first one get sets of their own.
    std::string id = diskUtilUUID;
    std::erase(id, '-');
    if (id.size() > 8) id.erase(0, id.size() - 8);
    return volumeName + "_" + id;
}

}  // namespace tapekeep
