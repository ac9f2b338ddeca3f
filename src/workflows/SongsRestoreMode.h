#pragma once

namespace tapekeep {

// How the Songs folder of a version is restored: whole, or song by song with the samples each uses.
enum class SongsRestoreMode { fullFolder, individual };

}  // namespace tapekeep
