#include "platform/ThreadName.h"

#include <pthread.h>

namespace tapekeep {

void setCurrentThreadName(const std::string& name) {
    constexpr std::size_t longestThreadName = 15;
    ::pthread_setname_np(::pthread_self(), name.substr(0, longestThreadName).c_str());
}

}  // namespace tapekeep
