#pragma once

#include <string>

namespace tapekeep {

// Whether a card differs from its latest backup, as the card view words it.
struct BackupFreshness {
    enum class Kind { checking, noBackup, upToDate, changes };

    Kind kind = Kind::checking;
    int added = 0, modified = 0, deleted = 0;  // for changes

    static BackupFreshness checking() { return {Kind::checking, 0, 0, 0}; }
    static BackupFreshness noBackup() { return {Kind::noBackup, 0, 0, 0}; }
    static BackupFreshness upToDate() { return {Kind::upToDate, 0, 0, 0}; }
    static BackupFreshness changes(int added, int modified, int deleted) {
        return {Kind::changes, added, modified, deleted};
    }

    // "CHECKING", "NO BACKUP YET", "UP TO DATE", or the total with separators: "1 CHANGE", "1,204 CHANGES".
    [[nodiscard]] std::string label() const;

    bool operator==(const BackupFreshness&) const = default;
};

}  // namespace tapekeep
