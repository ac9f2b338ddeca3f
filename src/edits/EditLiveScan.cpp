#include "edits/EditLiveScan.h"

#include <cerrno>
#include <optional>
#include <system_error>
#include <vector>

#include "content/BrowseFileError.h"
#include "content/SampleReferences.h"
#include "core/Cancelled.h"
#include "core/PosixError.h"
#include "edits/EditLiveScanError.h"
#include "edits/EditPathValidator.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

// A song or instrument met in the walk.
struct UserFile {
    fs::path url;
    std::string cardPath;
};

// Instruments count as users as the browser's usage index counts them: overwriting a sample that an
// instrument file names breaks that instrument as surely as it breaks a song. The "._" files that a
// Mac leaves beside each file it touches on a card are its metadata, not songs: read as songs they
// would fail every scan of such a card.
bool isSongOrInstrument(const std::string& key) {
    const fs::path path(key);
    const auto extension = path.extension();
    return (extension == ".m8s" || extension == ".m8i") && !path.filename().string().starts_with("._");
}

class CardWalk {
public:
    CardWalk(EditLiveScan& scan, const std::stop_token& token) : scan_(scan), token_(token) {}

    // Hidden files are walked like any other: a hidden file still takes its path on the card.
    // Symbolic links are neither followed nor counted as files, so that a link can neither make a
    // path look present nor lead the scan off the card; everything the walk reaches therefore lies
    // below the mount root, and its card path is its path below the root. Only regular files count.
    void walk(const fs::path& folder, const std::string& cardFolder) {
        std::error_code listing;
        fs::directory_iterator entries(folder, listing);
        for (; !listing && entries != fs::directory_iterator(); entries.increment(listing)) {
            throwIfCancelled(token_);
            const auto& entry = entries->path();
            const std::string cardPath = cardFolder + "/" + entry.filename().string();
            std::error_code reading;
            const auto status = entries->symlink_status(reading);
            if (reading) throw PosixError::fromErrno(reading.value(), "Could not read " + entry.string());
            if (fs::is_directory(status)) {
                walk(entry, cardPath);
            } else if (fs::is_regular_file(status)) {
                record(entry, cardPath);
            }
        }
        if (listing) throw PosixError::fromErrno(listing.value(), "Could not list " + folder.string());
    }

    [[nodiscard]] const std::vector<UserFile>& users() const { return users_; }

private:
    void record(const fs::path& file, const std::string& cardPath) {
        auto path = EditPathValidator::normalizePath(cardPath);
        auto key = EditLiveScan::sampleKey(path);
        if (isSongOrInstrument(key)) users_.push_back({file, path});
        scan_.samplePathsByKey.insert_or_assign(std::move(key), std::move(path));
    }

    EditLiveScan& scan_;
    const std::stop_token& token_;
    std::vector<UserFile> users_;
};

// The key of the file on the card that a stored sample path reaches: the first of its candidates
// that the card holds. A reference to a sample that is gone is passed over, not a failure: a song
// that names a deleted sample is common, must not block every edit of the card, and uses nothing.
std::optional<std::string> keyOnCard(const EditLiveScan& scan, const std::string& sample,
                                     const UserFile& user, const fs::path& mountRoot) {
    std::vector<BrowseFileService::SampleCandidate> candidates;
    try {
        candidates = BrowseFileService::sampleCandidates(sample, user.url, mountRoot);
    } catch (const BrowseFileError& error) {
        if (error.kind() == BrowseFileError::Kind::sampleMissing) return std::nullopt;  // names nothing
        throw EditLiveScanError::unsafeSampleReference(user.cardPath, sample);
    }
    for (const auto& candidate : candidates) {
        auto key = EditLiveScan::sampleKey(candidate.key);
        if (scan.samplePathsByKey.contains(key)) return key;
    }
    return std::nullopt;
}

void addReferences(EditLiveScan& scan, const UserFile& user, const fs::path& mountRoot) {
    std::vector<std::string> samples;
    try {
        samples = BrowseFileService::storedSamplePaths(user.url);
    } catch (const BrowseFileError&) {
        throw EditLiveScanError::unreadableSong(user.cardPath);
    }
    for (const auto& sample : samples) {
        if (const auto key = keyOnCard(scan, sample, user, mountRoot))
            scan.songReferencesBySampleKey[*key].insert(user.cardPath);
    }
}

void requireFolder(const fs::path& mountRoot) {
    std::error_code error;
    const auto status = fs::status(mountRoot, error);
    if (error) throw PosixError::fromErrno(error.value(), "Could not list " + mountRoot.string());
    if (!fs::is_directory(status))
        throw PosixError::fromErrno(ENOTDIR, "Could not list " + mountRoot.string());
}

template <typename Paths>
std::set<std::string> keysOf(const Paths& paths) {
    std::set<std::string> keys;
    for (const auto& path : paths) keys.insert(EditLiveScan::sampleKey(path));
    return keys;
}

}  // namespace

EditLiveScan EditLiveScan::scan(const fs::path& mountRoot, const std::stop_token& token) {
    requireFolder(mountRoot);
    EditLiveScan scan;
    CardWalk walk(scan, token);
    walk.walk(mountRoot, "");
    for (const auto& user : walk.users()) {
        throwIfCancelled(token);
        addReferences(scan, user, mountRoot);
    }
    return scan;
}

std::string EditLiveScan::sampleKey(std::string_view cardPath) {
    return BrowseFileService::indexKey(cardPath);
}

bool EditLiveScan::holdsPath(std::string_view cardPath) const {
    return samplePathsByKey.contains(sampleKey(cardPath));
}

SongDelta EditLiveScan::deltaOf(const EditEntry& edit) const {
    static const std::set<std::string> noUsers;
    const auto source = sampleKey(edit.sourceRelativePath);
    const auto found = songReferencesBySampleKey.find(source);
    const auto& users = found == songReferencesBySampleKey.end() ? noUsers : found->second;
    const auto recordedKeys = keysOf(edit.affectedSongs);
    const auto userKeys = keysOf(users);

    SongDelta delta;
    delta.missingOnCard = !samplePathsByKey.contains(source);
    // The same for both modes: a saveAsNew edit records no songs, so its extras are simply the
    // source's users, which its own write leaves alone.
    for (const auto& user : users)
        if (!recordedKeys.contains(sampleKey(user))) delta.extraSongsOnCard.push_back(user);
    for (const auto& song : edit.affectedSongs)
        if (!userKeys.contains(sampleKey(song))) delta.removedSongs.push_back(song);
    delta.targetCollision = edit.mode == EditMode::saveAsNew && holdsPath(edit.targetRelativePath);
    return delta;
}

}  // namespace tapekeep
