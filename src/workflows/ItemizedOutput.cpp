#include "workflows/ItemizedOutput.h"

#include <optional>

#include "backup/RestoreError.h"
#include "backup/RsyncDiffParser.h"
#include "backup/RsyncParseError.h"
#include "backup/RsyncVersion.h"
#include "core/Cancelled.h"

namespace tapekeep::ItemizedOutput {

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const auto& line : lines) {
        if (!text.empty()) text += '\n';
        text += line;
    }
    return text;
}

std::future<RsyncVersion> detectVersionMeanwhile(const std::string& rsyncPath, std::stop_token token) {
    return std::async(std::launch::async, [rsyncPath, token = std::move(token)] {
        return RsyncVersion::detect(rsyncPath, token);
    });
}

std::vector<FileDiff> read(const std::vector<std::string>& lines, std::future<RsyncVersion> detection,
                           const RsyncLogStore& logStore, const Log& log, const std::string& purpose,
                           std::stop_token token) {
    std::optional<RsyncVersion> version;
    try {
        version = detection.get();
        throwIfCancelled(token);
    } catch (const Cancelled&) {
        throw;
    } catch (const std::exception& error) {
        log.error(std::string("detectVersion failed: ") + error.what());
    }
    try {
        if (!version) throw RsyncParseError::unsupportedVersion("");
        return RsyncDiffParser::parse(lines, *version, false);
    } catch (const RsyncParseError& error) {
        log.error(purpose + " parse failed: " + error.what());
    }
    if (auto saved = logStore.write(joined(lines))) throw RestoreError::parseFailedWithLog(*saved);
    throw Error("rsync output parse failed — could not save diagnostic log");
}

}  // namespace tapekeep::ItemizedOutput
