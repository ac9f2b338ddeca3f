#pragma once

#include <functional>
#include <string>

#include "workflows/CompletionFeedback.h"

namespace tapekeep {

// The end of a run on the desktop: a desktop notification, and the completion sound as the
// freedesktop sound-theme event that stands for the chosen name (see soundThemeEvent); a name that
// stands for none plays nothing. GUI thread.
class DesktopFeedback : public CompletionFeedback {
public:
    struct Outlets {
        std::function<void(const std::string& title, const std::string& body)> notify;
        std::function<void(const std::string& eventId)> playEvent;
    };

    explicit DesktopFeedback(Outlets outlets) : outlets_(std::move(outlets)) {}

    void notify(const std::string& title, const std::string& body) override;
    void playSound(const std::string& name) override;

private:
    Outlets outlets_;
};

}  // namespace tapekeep
