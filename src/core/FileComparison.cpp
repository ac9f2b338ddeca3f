#include "core/FileComparison.h"

#include <algorithm>

#include "core/Cancelled.h"
#include "core/FileReading.h"

namespace tapekeep {

bool sameBytesToEnd(int first, const std::string& firstContext, std::vector<char>& firstBuffer, int second,
                    const std::string& secondContext, std::vector<char>& secondBuffer,
                    const std::stop_token& token) {
    for (;;) {
        throwIfCancelled(token);
        const auto count = readFully(first, firstBuffer.data(), firstBuffer.size(), firstContext);
        const auto secondCount = readFully(second, secondBuffer.data(), secondBuffer.size(), secondContext);
        if (count != secondCount ||
            !std::equal(firstBuffer.begin(), firstBuffer.begin() + static_cast<std::ptrdiff_t>(count),
                        secondBuffer.begin()))
            return false;
        if (count < firstBuffer.size()) return true;
    }
}

}  // namespace tapekeep
