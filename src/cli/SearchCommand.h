#pragma once

#include "cli/Command.h"

namespace tapekeep::cli {

// The files and folders of a version whose names match a query, narrowed to a kind.
class SearchCommand : public Command {
public:
    [[nodiscard]] std::string name() const override { return "search"; }
    [[nodiscard]] std::string usage() const override {
        return "tapekeep-cli search SET VERSION [--filter F] [QUERY…]";
    }
    int run(CliContext& context, Arguments arguments) override;
};

}  // namespace tapekeep::cli
