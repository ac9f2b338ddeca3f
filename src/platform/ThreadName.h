#pragma once

#include <string>

namespace tapekeep {

// Names the calling thread for debuggers and process listings; Linux keeps the first 15 bytes.
void setCurrentThreadName(const std::string& name);

}  // namespace tapekeep
