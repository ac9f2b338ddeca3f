#pragma once

namespace tapekeep {

// Where an edit writes: a new file beside its source, or over the source itself.
enum class EditMode { saveAsNew, overwrite };

}  // namespace tapekeep
