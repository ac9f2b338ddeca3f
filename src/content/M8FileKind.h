#pragma once

#include <filesystem>

namespace tapekeep {

// What a file of a card is to the readers of songs and instruments, by its extension in any case.
enum class M8FileKind { song, instrument, other };

M8FileKind m8FileKindOf(const std::filesystem::path& file);

}  // namespace tapekeep
