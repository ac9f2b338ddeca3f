#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

// The argument lists of every rsync the program runs: the engine's contract with rsync, so the
// order of the flags is fixed. All functions are pure and may be called from any thread.
//
// Paths are std::filesystem::path. The source and the destination come last, each with "/"
// appended unless it already ends in one, so that rsync copies a folder's contents and not the
// folder (copyToCardArguments keeps a file's paths as they stand). linkDest and listPath are
// passed as they are. Folders are names relative to the source's root, written into include
// patterns through escapeIncludePattern.
namespace tapekeep::RsyncCommands {

using Arguments = std::vector<std::string>;
using Folders = std::vector<std::string>;

// The seven excludes that every list carries, in this order: the platform's litter and our own
// side-car files, so that no copy, comparison or --delete ever touches them.
const Arguments& excludeArguments();

// A backslash before every "\", "*", "?" and "[": rsync's pattern characters. Nothing else changes.
std::string escapeIncludePattern(const std::string& folder);

// The path as rsync's "contents of this folder": with "/" appended unless it ends in one.
std::string folderContents(const std::filesystem::path& folder);

// The dry run that estimates a backup's size: -an --stats --delete E [--link-dest].
Arguments estimateArguments(const std::filesystem::path& source, const std::filesystem::path& destination,
                            const std::optional<std::filesystem::path>& linkDest);

// A whole backup: -avh [--checksum] --delete [--info=progress2] E [--link-dest]. --checksum only
// with linkDest, so a file is hard-linked only when its content is the same.
Arguments fullBackupArguments(const std::filesystem::path& source, const std::filesystem::path& destination,
                              const std::optional<std::filesystem::path>& linkDest, bool progress);

// Staging as an image of the previous version: -a [--link-dest=linkBase] --checksum E.
Arguments baseSnapshotArguments(const std::filesystem::path& linkBase, const std::filesystem::path& staging,
                                bool hardLink);

// Selected whole folders: -avh --checksum --delete [--info=progress2] [--link-dest] E, the
// includes of each folder, then --exclude=* so that nothing else is copied or deleted. A folder's
// includes are "/<parent>/" for each parent not yet included (a nested folder's parents are entered
// without their other content), then "/<folder>/" and "/<folder>/**".
Arguments folderPassArguments(const std::filesystem::path& source, const std::filesystem::path& destination,
                              const Folders& folders, bool progress,
                              const std::optional<std::filesystem::path>& linkDest);

// Selected files from a NUL-separated list: -avh --checksum [--info=progress2] [--link-dest] E
// --recursive --from0 --files-from. No --delete.
Arguments fileListPassArguments(const std::filesystem::path& source, const std::filesystem::path& destination,
                                const std::filesystem::path& listPath, bool progress,
                                const std::optional<std::filesystem::path>& linkDest);

// The checksum dry run that must report no difference. With listPath: -anic --itemize-changes
// --out-format=%i<TAB>%n E --recursive --from0 --files-from (the list names every path, so folders
// are not used). Without: -anic --itemize-changes --out-format=%i<TAB>%n --delete E, then with
// folders their includes and --exclude=* (an empty list still adds --exclude=*).
Arguments verifyArguments(const std::filesystem::path& source, const std::filesystem::path& destination,
                          const std::optional<Folders>& folders,
                          const std::optional<std::filesystem::path>& listPath);

// A whole version back to the card: -avh -u --progress --stats --checksum F E. Never --delete.
// F, in every list that writes to a card or previews such a write: --no-perms --no-owner --no-group
// --omit-dir-times, which a FAT card cannot keep.
Arguments wholeRestoreArguments(const std::filesystem::path& source,
                                const std::filesystem::path& destination);

// Listed paths back to the card: the whole restore's flags, F, E, --recursive --from0 --files-from.
Arguments restoreFromListArguments(const std::filesystem::path& source,
                                   const std::filesystem::path& destination,
                                   const std::filesystem::path& listPath);

// Listed files of a safety version back to the card, to undo a restore: -avh --progress --stats
// --checksum F E --recursive --from0 --files-from. No -u: the files the restore replaced are put back
// even where the card's copy is newer, and --checksum rather than the times decides, since the
// restore may have left a replaced file with the same size and time as the safety copy.
Arguments undoRestoreArguments(const std::filesystem::path& safetyVersion,
                               const std::filesystem::path& destination,
                               const std::filesystem::path& listPath);

// What a restore would touch: -aniuc --itemize-changes --out-format=%i<TAB>%n F E, then with folders
// their includes and --exclude=*; without folders, the whole version.
Arguments restorePreviewArguments(const std::filesystem::path& source,
                                  const std::filesystem::path& destination,
                                  const std::optional<Folders>& folders);

// The preview of a restore from a list: the preview's flags, F, E, --recursive --from0 --files-from.
Arguments restorePreviewFromListArguments(const std::filesystem::path& source,
                                          const std::filesystem::path& destination,
                                          const std::filesystem::path& listPath);

// What differs between two versions: -anic --delete --itemize-changes --out-format=%i<TAB>%n E.
// versionA is the source, so a file only A has reads as added.
Arguments compareVersionsArguments(const std::filesystem::path& versionA,
                                   const std::filesystem::path& versionB);

// A folder or a file from a version to the card: -avh --checksum --safe-links --progress F E. A
// folder's paths get the trailing "/"; a file's are used as they stand.
Arguments copyToCardArguments(const std::filesystem::path& source, const std::filesystem::path& destination,
                              bool isFolder);

// A staged edit's file onto its target on the card: -avh, --ignore-existing for a new file (if
// something has appeared at the target since the checks, rsync leaves it alone and the read-back
// reports it), --checksum --safe-links --progress F, "--chmod=F{mode}" when a mode for a new file
// is given, E, staged file, target. Never --partial, --inplace or --delete: rsync writes a temporary
// name and renames, so the target is whole or absent.
Arguments applyEditArguments(const std::filesystem::path& stagedFile, const std::filesystem::path& target,
                             bool ignoreExisting, std::optional<unsigned> newFileMode = std::nullopt);

}  // namespace tapekeep::RsyncCommands
