#pragma once

// The fixed texts of the pending edits sheet, shared by the window and the command line.
namespace tapekeep::EditQueueTexts {

inline constexpr const char* lockHeld =
    "Backup or restore is currently running on this card — try again when it finishes.";
inline constexpr const char* lockHeldBanner = "Backup or restore in progress";
inline constexpr const char* noPendingEdits = "NO PENDING EDITS";
inline constexpr const char* collision = "COLLISION";
inline constexpr const char* sourceMissing = "SOURCE MISSING ON CARD";
inline constexpr const char* moreSongs = "MORE SONGS NOW USE THIS SAMPLE";
inline constexpr const char* fewerSongs = "FEWER SONGS NOW USE THIS SAMPLE";
inline constexpr const char* matches = "LIVE SCAN MATCHES MANIFEST";
inline constexpr const char* scanErrorPrefix = "SCAN ERROR: ";
inline constexpr const char* copyComplete = "Copy complete — retry to finish saving its status";
inline constexpr const char* blocked = "BLOCKED — RESOLVE BEFORE APPLYING";
inline constexpr const char* overwriteHasExtraSongs =
    "CARD HAS ADDITIONAL SONGS REFERENCING OVERWRITE TARGETS";
inline constexpr const char* renameTarget = "RENAME TARGET";
inline constexpr const char* renameTargetOnCard = "A file with this path already exists on the card";
inline constexpr const char* applyFailed = "FAILED — SEE ROWS FOR DETAILS";
inline constexpr const char* retry = "RETRY";
inline constexpr const char* applyTitle = "Apply pending edits?";
inline constexpr const char* applyReplaces =
    "Selected edits include REPLACE operations. Files on the SD card will be permanently overwritten. "
    "This cannot be undone.";
inline constexpr const char* applyWrites =
    "The selected edits will be written to the SD card. This cannot be undone.";
inline constexpr const char* discardAllTitle = "Discard all edits?";
inline constexpr const char* discardAllText =
    "All pending edits will be permanently removed. This cannot be undone.";
inline constexpr const char* noResult = "no result";

}  // namespace tapekeep::EditQueueTexts
