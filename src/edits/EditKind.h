#pragma once

namespace tapekeep {

// What an edit does to its sample; a closed set with one case so far.
enum class EditKind { sampleTrim };

}  // namespace tapekeep
