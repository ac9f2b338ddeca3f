#pragma once

#include <string>

namespace tapekeep {

// How the end of a run reaches the user besides the card's state: a desktop notification and a
// sound. The desktop application and the CLI each bring their own. Called on the GUI thread.
class CompletionFeedback {
public:
    virtual ~CompletionFeedback() = default;
    virtual void notify(const std::string& title, const std::string& body) = 0;
    virtual void playSound(const std::string& name) = 0;
};

}  // namespace tapekeep
