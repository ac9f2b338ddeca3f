#pragma once

namespace tapekeep {

// What a restore puts back: the whole version, or what is chosen in its folders.
enum class RestoreMode { fullBackup, folders };

}  // namespace tapekeep
