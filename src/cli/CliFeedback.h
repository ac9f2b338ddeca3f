#pragma once

#include <ostream>

#include "cli/Output.h"
#include "workflows/CompletionFeedback.h"

namespace tapekeep::cli {

// The end of a run, as a terminal shows it: the notification as a line. The CLI plays no sound.
class CliFeedback : public CompletionFeedback {
public:
    explicit CliFeedback(std::ostream& err) : err_(err) {}
    void notify(const std::string& title, const std::string& body) override {
        err_ << Output::plainText(title + ": " + body) << '\n';
    }

private:
    std::ostream& err_;
};

}  // namespace tapekeep::cli
