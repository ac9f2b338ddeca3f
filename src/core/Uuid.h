#pragma once

#include <string>

namespace tapekeep {

// A random (version 4) UUID in canonical upper-case text form.
std::string makeUuid();

}  // namespace tapekeep
