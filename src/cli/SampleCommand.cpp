#include "cli/SampleCommand.h"

#include <cmath>
#include <cstdio>
#include <optional>

#include "cli/Output.h"
#include "cli/SignalCancellation.h"
#include "edits/SampleAnalyzer.h"

namespace tapekeep::cli {
namespace fs = std::filesystem;

namespace {

nlohmann::json metadataJson(const SampleMetadata& metadata) {
    return {{"frames", metadata.frameCount},
            {"sampleRate", std::lround(metadata.sampleRate)},
            {"channels", metadata.channelCount},
            {"bitDepth", metadata.bitDepth ? nlohmann::json(*metadata.bitDepth) : nlohmann::json()},
            {"duration", metadata.durationSeconds}};
}

nlohmann::json rangesJson(const SampleWaveform& waveform) {
    nlohmann::json ranges = nlohmann::json::array();
    for (const auto& range : waveform.ranges) ranges.push_back({range.low, range.high});
    return ranges;
}

void printPlain(std::ostream& out, const SampleMetadata& metadata,
                const std::optional<SampleWaveform>& waveform) {
    char duration[32];
    std::snprintf(duration, sizeof duration, "%.3f s", metadata.durationSeconds);
    out << "frames: " << metadata.frameCount << "\nsample rate: " << std::lround(metadata.sampleRate)
        << " Hz\nchannels: " << metadata.channelCount
        << "\nbit depth: " << (metadata.bitDepth ? std::to_string(*metadata.bitDepth) : "none")
        << "\nduration: " << duration << '\n';
    if (!waveform) return;
    out << "peaks (lowest highest):\n";
    for (const auto& range : waveform->ranges) out << range.low << ' ' << range.high << '\n';
}

}  // namespace

int SampleCommand::run(CliContext& context, Arguments arguments) {
    const auto peaks = arguments.takeValue("--peaks");
    const fs::path file = arguments.operands(1, 1, usage()).front();
    const int bins = peaks ? parseCount(*peaks, "--peaks", 1) : 0;
    const auto token = SignalCancellation::token();
    const SampleMetadata metadata = SampleAnalyzer::metadata(file, token);
    std::optional<SampleWaveform> waveform;
    if (peaks) waveform = SampleAnalyzer::peaks(file, bins, token);
    if (!context.json()) {
        printPlain(context.out(), metadata, waveform);
        return 0;
    }
    nlohmann::json json = metadataJson(metadata);
    if (waveform) json["peaks"] = rangesJson(*waveform);
    context.out() << Output::jsonText(json) << '\n';
    return 0;
}

}  // namespace tapekeep::cli
