#pragma once

#include <functional>
#include <memory>
#include <stop_token>

#include "backup/BackupOperation.h"
#include "core/SDCard.h"

namespace tapekeep {

class VolumeScanner;

// The identity check that a run makes around every external step: the card is looked up afresh
// by its UUID with a new scanner and must still be the same volume at the same mount path.
// A card that cannot be confirmed stops the run: a card that is gone or moved says so, and one
// that the system could not look up asks for another try, as nothing says it was pulled.
BackupOperation::VolumeValidator makeVolumeValidator(
    std::function<std::unique_ptr<VolumeScanner>()> makeScanner);

// True when the card is still mounted under its UUID at its mount path. False when it is gone,
// moved, or could not be looked up: what was read from its mount point may not be the card's.
// Throws only Cancelled.
bool isStillMounted(const VolumeScanner& scanner, const SDCard& card, std::stop_token token);

}  // namespace tapekeep
