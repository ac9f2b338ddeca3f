#pragma once

#include <filesystem>
#include <stop_token>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "content/SampleCandidate.h"

// How the sample paths stored in songs and instruments become files of one backup version (or of
// any folder laid out like a card). Stateless: every function works on its arguments alone and may
// be called from any thread; the walks check their stop_token once per file.
//
// A stored path may be relative to the song's folder, to the folder above it, or absolute from the
// card's root, and may differ in slashes and letter case from the file on disk, so it stands for up
// to three places. None of them may leave the version: containment is tested after symbolic links
// are resolved, so a link inside the version that points out of it is an escape.
namespace tapekeep::BrowseFileService {

// Lower-cased key of a place inside a version -> the songs and instruments that may refer to it,
// each listed once, in the order the walk met them.
using SampleUsageIndex = std::unordered_map<std::string, std::vector<std::filesystem::path>>;

// The one form in which paths inside a version are compared: backslashes become slashes, NFC,
// exactly one leading slash, no doubled slashes, no trailing slash; "" is "/". Letter case is kept.
std::string normalizedKey(std::string_view path);

// normalizedKey lower-cased: the form keys take wherever they are compared, stored or looked up,
// because the card's file system ignores case.
std::string indexKey(std::string_view path);

// The places a stored sample path may mean, most preferred first; never empty. Existence is not
// tested. Throws BrowseFileError sampleMissing (nothing but blanks) or samplePathEscapesVersion
// (every place lies outside the version, or the path is only slashes). Each candidate tells whether
// it was reached through a symbolic link inside the version.
std::vector<SampleCandidate> sampleCandidates(const std::string& storedPath,
                                              const std::filesystem::path& referencingFile,
                                              const std::filesystem::path& versionRoot);

// The sample paths that a song or instrument (.m8i, any other name is read as a song) stores, as
// written; none for an empty file or an .m8i that holds no instrument. Throws BrowseFileError
// invalidSong for anything else that cannot be read.
std::vector<std::string> storedSamplePaths(const std::filesystem::path& file);

// Every song (.m8s) and instrument (.m8i) below a folder, in no particular order. Hidden names and
// symbolic links are not walked. Throws PosixError when a folder cannot be listed, or Cancelled.
std::vector<std::filesystem::path> m8FileURLs(const std::filesystem::path& folder,
                                              std::stop_token token = {});

// The usage index of a whole version, with a key for every candidate of every reference, present
// on disk or not. All or nothing: the first song or instrument that cannot be read (BrowseFileError
// invalidSong), reference that escapes, or folder that cannot be listed ends it. Throws Cancelled.
SampleUsageIndex sampleUsageIndex(const std::filesystem::path& versionRoot, std::stop_token token = {});

// The path of an existing file below the version root, with links resolved and no leading slash.
// Throws BrowseFileError sourceOutsideVersion (outside, or the root itself) or sourceMissing.
std::string relativePath(const std::filesystem::path& file, const std::filesystem::path& versionRoot);

// True when the path is the root or below it, compared lexically; links are not resolved here.
bool isInside(const std::filesystem::path& url, const std::filesystem::path& root);

// True only for a regular file known to be empty; false when its size cannot be read. A symbolic
// link is not followed.
bool isZeroByteFile(const std::filesystem::path& url);

// The songs and instruments of the version that may refer to the file (empty for none); null for a
// file outside the version path, or the version itself.
const std::vector<std::filesystem::path>* usersOf(const std::filesystem::path& file,
                                                  const std::filesystem::path& versionPath,
                                                  const SampleUsageIndex& index);

// True when no song or instrument of the version may refer to the file. A file outside the version
// path is never unused. Meaningful only for samples.
bool isUnusedSample(const std::filesystem::path& file, const std::filesystem::path& versionPath,
                    const SampleUsageIndex& index);

// "3 songs, 1 instrument" for a list of referencing files (.m8i counts as an instrument, anything
// else as a song); "" for none.
std::string usageLabel(const std::vector<std::string>& referencingPaths);

}  // namespace tapekeep::BrowseFileService
