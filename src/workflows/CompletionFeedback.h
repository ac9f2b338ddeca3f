#pragma once

#include <string>

namespace tapekeep {

// How the end of a run reaches the user besides the card's state: a desktop notification and,
// where the front end has sounds (the desktop application; the CLI has none), a sound. Each front
// end brings its own. Called on the GUI thread.
class CompletionFeedback {
public:
    virtual ~CompletionFeedback() = default;
    virtual void notify(const std::string& title, const std::string& body) = 0;
    virtual void playSound(const std::string& /*name*/) {}
};

}  // namespace tapekeep
