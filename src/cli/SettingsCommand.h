#pragma once

#include "cli/Command.h"

namespace tapekeep::cli {

// Reads and writes the settings by their stored keys, shared with the desktop application.
class SettingsCommand : public Command {
public:
    [[nodiscard]] std::string name() const override { return "settings"; }
    [[nodiscard]] std::string usage() const override {
        return "tapekeep-cli settings list | get KEY | set KEY VALUE";
    }
    int run(CliContext& context, Arguments arguments) override;

private:
    int list(CliContext& context);
    int get(CliContext& context, const std::string& key);
    int set(CliContext& context, const std::string& key, const std::string& text);
};

}  // namespace tapekeep::cli
