#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "cli/Arguments.h"
#include "cli/CliContext.h"

// "edits SET stage VERSION SAMPLE --from S --to S [--as PATH | --overwrite]": a trim of a version's
// sample staged as a pending edit, as the stage sheet stages one.
namespace tapekeep::cli::StagedTrim {

struct Options {
    std::optional<double> from;
    std::optional<double> to;
    std::optional<std::string> target;  // --as
    bool overwrite = false;

    [[nodiscard]] bool given() const { return from || to || target || overwrite; }
};

// Takes the stage options wherever they stand; throws UsageError for a bad number.
Options takeOptions(Arguments& arguments);

// operands: VERSION SAMPLE. Prints {"id","mode","target"}. Throws UsageError, the staging errors, or
// Cancelled.
int stage(CliContext& context, const std::filesystem::path& set, const std::vector<std::string>& operands,
          const Options& options, const std::string& usage);

}  // namespace tapekeep::cli::StagedTrim
