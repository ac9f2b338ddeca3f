#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace tapekeep::test {

// A virtual X display of its own: Xvfb started on a free display number, stopped with the object.
class XvfbDisplay {
public:
    XvfbDisplay();
    ~XvfbDisplay();
    XvfbDisplay(const XvfbDisplay&) = delete;
    XvfbDisplay& operator=(const XvfbDisplay&) = delete;

    // ":N", or nothing when Xvfb could not be started; then whyUnavailable() says why.
    [[nodiscard]] const std::optional<std::string>& name() const { return name_; }
    [[nodiscard]] const std::string& whyUnavailable() const { return whyUnavailable_; }

private:
    pid_t pid_ = -1;
    std::optional<std::string> name_;
    std::string whyUnavailable_;
};

}  // namespace tapekeep::test
