#pragma once

#include <string_view>

// The fixed texts of the sheet in which a trim becomes a pending edit, each stating a condition by
// itself, so that the desktop and the command line word them alike.
namespace tapekeep::StageSheetTexts {

inline constexpr std::string_view saveAsNewMode = "+ NEW";
inline constexpr std::string_view overwriteMode = "REPLACE";

inline constexpr std::string_view folderOutsideVersion = "Chosen folder is outside the backup version root.";
inline constexpr std::string_view folderOutsideSamples = "Folder must be inside /Samples/.";
inline constexpr std::string_view typedPathOutsideSamples = "Must start with /Samples/";
inline constexpr std::string_view sourceEqualsTarget = "SOURCE = TARGET";

inline constexpr std::string_view nonWavSource =
    "Trims are exported as WAV. Use Save as New for this source format.";
inline constexpr std::string_view pendingEditExists = "A PENDING EDIT EXISTS FOR THIS SAMPLE.";

inline constexpr std::string_view checkingReferences = "Checking song references…";
inline constexpr std::string_view referencesUnavailable =
    "Song references could not be checked. Staging is unavailable.";
inline constexpr std::string_view noUsers = "NO SONG OR INSTRUMENT USES THIS SAMPLE — REPLACE IS SAFE.";
inline constexpr std::string_view usersHeading = "USE THIS SAMPLE — OVERWRITE MAY BREAK:";

}  // namespace tapekeep::StageSheetTexts
