#pragma once

#include <ostream>

#include "workflows/CompletionFeedback.h"

namespace tapekeep::cli {

// The end of a run, as a terminal shows it: the notification as a line, the sound by name.
class CliFeedback : public CompletionFeedback {
public:
    explicit CliFeedback(std::ostream& err) : err_(err) {}
    void notify(const std::string& title, const std::string& body) override {
        err_ << title << ": " << body << '\n';
    }
    void playSound(const std::string& name) override { err_ << "(sound: " << name << ")\n"; }

private:
    std::ostream& err_;
};

}  // namespace tapekeep::cli
