#include "cli/UsageCommand.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "cli/CliError.h"
#include "cli/Output.h"
#include "content/SampleReferences.h"

namespace tapekeep::cli {
namespace fs = std::filesystem;
using namespace BrowseFileService;

namespace {

std::string folded(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

bool isAudioFile(const fs::path& file) {
    static const std::vector<std::string> audio = {".wav",  ".aif", ".aiff", ".mp3",
                                                   ".flac", ".ogg", ".m4a",  ".caf"};
    return std::find(audio.begin(), audio.end(), folded(file.extension().string())) != audio.end();
}

// The version's samples that no song or instrument uses; renders are the user's own exports.
std::vector<std::string> unusedSamples(const fs::path& version, const SampleUsageIndex& index) {
    std::vector<std::string> unused;
    std::error_code error;
    for (auto it = fs::recursive_directory_iterator(version, error);
         !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
        const std::string relative = it->path().lexically_relative(version).string();
        if (it->path().filename().string().starts_with('.')) {
            if (it->is_directory()) it.disable_recursion_pending();
            continue;
        }
        if (it.depth() == 0 && it->is_directory() && folded(it->path().filename().string()) == "renders") {
            it.disable_recursion_pending();
            continue;
        }
        std::error_code typeError;
        if (it->is_regular_file(typeError) && !it->is_symlink(typeError) && isAudioFile(it->path()) &&
            isUnusedSample(it->path(), version, index))
            unused.push_back(relative);
    }
    if (error) throw fs::filesystem_error("Could not read the version", version, error);
    std::sort(unused.begin(), unused.end());
    return unused;
}

std::vector<std::string> usersOf(const fs::path& version, const std::string& file,
                                 const SampleUsageIndex& index) {
    std::vector<std::string> users;
    if (auto found = index.find(indexKey(file)); found != index.end())
        for (const auto& user : found->second) users.push_back(relativePath(user, version));
    std::sort(users.begin(), users.end());
    return users;
}

}  // namespace

int UsageCommand::run(CliContext& context, Arguments arguments) {
    const auto operands = arguments.operands(2, 3, usage());
    const fs::path version = context.resolveVersion(context.resolveSet(operands[0]), operands[1]);
    const auto index = sampleUsageIndex(version);
    if (operands.size() == 2) {
        const auto unused = unusedSamples(version, index);
        if (context.json()) {
            context.out() << Output::jsonText({{"unused", unused}}) << '\n';
            return 0;
        }
        for (const auto& sample : unused) context.out() << Output::plainText(sample) << '\n';
        return 0;
    }
    const std::string& file = operands[2];
    const auto users = usersOf(version, file, index);
    if (context.json()) {
        context.out() << Output::jsonText({{"file", file}, {"users", users}, {"label", usageLabel(users)}})
                      << '\n';
        return 0;
    }
    context.out() << (users.empty() ? "Used by nothing" : "Used by " + Output::plainText(usageLabel(users)))
                  << '\n';
    for (const auto& user : users) context.out() << "  " << Output::plainText(user) << '\n';
    return 0;
}

}  // namespace tapekeep::cli
