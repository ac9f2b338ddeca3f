#include "cli/SummaryCommand.h"

#include <nlohmann/json.hpp>

#include "cli/CliError.h"
#include "cli/Output.h"
#include "content/M8ContentScanner.h"

namespace tapekeep::cli {

int SummaryCommand::run(CliContext& context, Arguments arguments) {
    const std::filesystem::path folder = arguments.operands(1, 1, usage()).front();
    std::error_code error;
    if (!std::filesystem::is_directory(folder, error)) throw UsageError("Not a folder: " + folder.string());
    M8ContentScanner scanner;
    const auto counts = scanner.scanContent(folder).first;
    if (context.json()) {
        auto list = nlohmann::json::array();
        for (const auto& count : counts) list.push_back({{"label", count.label}, {"count", count.count}});
        context.out() << Output::jsonText({{"counts", list}}) << '\n';
        return 0;
    }
    if (counts.empty()) context.out() << "No M8 files\n";
    for (const auto& count : counts)
        context.out() << Output::plainText(count.label) << '\t' << count.count << '\n';
    return 0;
}

}  // namespace tapekeep::cli
