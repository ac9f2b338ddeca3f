#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <stop_token>
#include <string>

#include "backup/BackupOperation.h"
#include "cards/Lease.h"
#include "cards/VolumeUUID.h"
#include "core/SDCard.h"
#include "workflows/RestoreOperation.h"

namespace tapekeep {

// Copies one file or folder of a backup version back to the same relative place on its card, the one
// write to a card that browsing a version allows. It holds the card's browse lease throughout,
// confirms the card before and after each step that touches it, refuses any symbolic link on the way
// to the destination, and reads back what rsync wrote. It adds and updates files but never deletes
// one: a failed copy may leave a partial file, which a later copy repairs (rsync compares checksums).
//
// Stateless apart from its dependencies: copy() may run on several threads at once, for different
// cards (the lease refuses a second copy to the same card).
class BrowseCopyOperation {
public:
    using LineHandler = RestoreOperation::LineHandler;
    // Whether the card with this UUID is mounted now: a restore's validator serves a copy as well.
    using Validator = RestoreOperation::Validator;

    struct Dependencies {
        // Throws when the card is not the mounted, expected volume.
        std::function<void(const SDCard& card, std::stop_token token)> validateVolume;
        // (rsyncPath, arguments, onLine, token) -> exit status.
        BackupOperation::RsyncRunner run;
        std::function<void(const std::filesystem::path& source, const std::filesystem::path& destination,
                           std::stop_token token)>
            verifyContents;
        std::function<Lease(const VolumeUUID& uuid)> acquire;
        std::function<void(const Lease& lease)> release;
    };

    // The working set: the card confirmed through `validate` by UUID at the same mount path (else
    // RestoreError::volumeUnmounted, as a restore says it), the shared rsync runner, verifyContents
    // below, and the browse lease of OperationLock::shared().
    static Dependencies standardDependencies(Validator validate);

    struct Request {
        std::filesystem::path destinationRoot;  // the card's mount path
        std::filesystem::path source;           // file or folder inside the version
        std::filesystem::path versionRoot;
        SDCard card;
        std::string rsyncPath;
    };

    explicit BrowseCopyOperation(Dependencies dependencies);

    // Blocks the calling thread; onLine gets rsync's lines on it. Returns the destination path on the
    // card. Throws BrowseFileError, OperationLockError (the card is held by another operation), the
    // validator's error, PosixError or Error for file-system failures, or Cancelled (never wrapped).
    // The lease is released on every path.
    std::filesystem::path copy(const Request& request, const LineHandler& onLine,
                               std::stop_token token) const;

    // The read-back: a file compared byte for byte with its copy, a folder entry by entry (every
    // file and folder of the source must be on the destination, of the same kind, files alike).
    // Names that no backup or copy carries (the content scan's skipped names and "._" files) are
    // left out on both sides, with what lies below them. Files are read in blocks of blockSize,
    // cancellation checked before each block and at each entry of a folder walk. Throws
    // BrowseFileError verificationFailed (naming the first entry that differs), unsupportedSource (a
    // symbolic link, or neither file nor folder), sourceMissing (a folder that cannot be opened),
    // PosixError (a file that cannot be read), or Cancelled.
    static void verifyContents(const std::filesystem::path& source, const std::filesystem::path& destination,
                               std::stop_token token);
    static constexpr std::size_t blockSize = 1'048'576;

    // Refuses a symbolic link on any component of destination below root: BrowseFileError
    // destinationSymlink with that path. A component that does not exist ends the walk. Throws
    // sourceOutsideVersion when destination does not lie below root (both standardised, links not
    // resolved), and PosixError when a component cannot be read.
    static void refuseSymbolicLinks(const std::filesystem::path& destination,
                                    const std::filesystem::path& root);

private:
    void copyHoldingLease(const Request& request, const std::filesystem::path& source,
                          const std::filesystem::path& destination, const LineHandler& onLine,
                          std::stop_token token) const;
    void confirmCard(const SDCard& card, std::stop_token token) const;

    Dependencies dependencies_;
};

}  // namespace tapekeep
