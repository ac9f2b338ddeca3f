#include "core/BackupSet.h"

namespace tapekeep {

std::string backupSetFolderName(const std::string& volumeName, const std::string& diskUtilUUID) {
    const std::string id8 =
        diskUtilUUID.size() > 8 ? diskUtilUUID.substr(diskUtilUUID.size() - 8) : diskUtilUUID;
    return volumeName + "_" + id8;
}

}  // namespace tapekeep
