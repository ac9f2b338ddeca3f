#include "core/LineSplitter.h"

#include <cstring>

#include "core/Utf8.h"

namespace tapekeep {
namespace {

// Finds the next CR or LF with two memchr scans whose results are remembered, so that each byte
// is examined about once per terminator kind however the two are interleaved.
class TerminatorFinder {
public:
    explicit TerminatorFinder(std::string_view bytes) : end_(bytes.data() + bytes.size()) {}

    // Position of the first CR or LF at or after `from`, or the end.
    const char* next(const char* from) {
        nextLineFeed_ = refresh(nextLineFeed_, from, '\n');
        nextCarriageReturn_ = refresh(nextCarriageReturn_, from, '\r');
        return nextLineFeed_ < nextCarriageReturn_ ? nextLineFeed_ : nextCarriageReturn_;
    }

    [[nodiscard]] const char* end() const { return end_; }

private:
    const char* refresh(const char* cached, const char* from, char terminator) const {
        if (cached >= from) return cached;
        const void* found = std::memchr(from, terminator, static_cast<std::size_t>(end_ - from));
        return found != nullptr ? static_cast<const char*>(found) : end_;
    }

    const char* end_;
    const char* nextLineFeed_ = nullptr;  // nullptr: not searched yet
    const char* nextCarriageReturn_ = nullptr;
};

}  // namespace

void LineSplitter::append(std::string_view bytes) {
    if (bytes.empty()) return;
    TerminatorFinder finder(bytes);
    const char* lineStart = bytes.data();
    const char* terminator = finder.next(lineStart);
    if (!pending_.empty()) {
        // The first line began in an earlier chunk: complete it in the buffer.
        pending_.append(lineStart, static_cast<std::size_t>(terminator - lineStart));
        if (terminator == finder.end()) return;
        lineStart = terminator + 1;
        std::string completed = std::move(pending_);
        pending_.clear();
        onLine_(repairUtf8(completed));
        terminator = finder.next(lineStart);
    }
    std::string line;  // reused for every line of this chunk
    while (terminator != finder.end()) {
        if (terminator != lineStart) {
            line.clear();
            appendRepairedUtf8(line,
                               std::string_view(lineStart, static_cast<std::size_t>(terminator - lineStart)));
            onLine_(line);
        }
        lineStart = terminator + 1;
        terminator = finder.next(lineStart);
    }
    pending_.assign(lineStart, static_cast<std::size_t>(finder.end() - lineStart));
}

void LineSplitter::finish() {
    if (pending_.empty()) return;
    std::string last = std::move(pending_);
    pending_.clear();
    onLine_(repairUtf8(last));
}

}  // namespace tapekeep
