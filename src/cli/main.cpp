#include <QCoreApplication>

#include <csignal>
#include <iostream>
#include <memory>
#include <vector>

#include "backup/RsyncLogStore.h"
#include "cli/BackupCommand.h"
#include "cli/BrowseCommand.h"
#include "cli/CardsCommand.h"
#include "cli/ChangesCommand.h"
#include "cli/CliError.h"
#include "cli/CompareCommand.h"
#include "cli/CopyCommand.h"
#include "cli/DragExportCommand.h"
#include "cli/EditsCommand.h"
#include "cli/EjectCommand.h"
#include "cli/ExportCommand.h"
#include "cli/ExportFileCommand.h"
#include "cli/NoteCommand.h"
#include "cli/Output.h"
#include "cli/RestoreCommand.h"
#include "cli/SampleCommand.h"
#include "cli/SearchCommand.h"
#include "cli/SetsCommand.h"
#include "cli/SettingsCommand.h"
#include "cli/SignalCancellation.h"
#include "cli/SongCommand.h"
#include "cli/SummaryCommand.h"
#include "cli/TrimCommand.h"
#include "cli/UsageCommand.h"
#include "cli/VersionsCommand.h"
#include "cli/WatchCommand.h"
#include "core/Cancelled.h"
#include "core/Log.h"

using namespace tapekeep;
using namespace tapekeep::cli;

namespace {

std::vector<std::unique_ptr<Command>> allCommands() {
    std::vector<std::unique_ptr<Command>> commands;
    commands.push_back(std::make_unique<CardsCommand>());
    commands.push_back(std::make_unique<BackupCommand>());
    commands.push_back(std::make_unique<SetsCommand>());
    commands.push_back(std::make_unique<VersionsCommand>());
    commands.push_back(std::make_unique<SettingsCommand>());
    commands.push_back(std::make_unique<SongCommand>());
    commands.push_back(std::make_unique<SummaryCommand>());
    commands.push_back(std::make_unique<UsageCommand>());
    commands.push_back(std::make_unique<BrowseCommand>());
    commands.push_back(std::make_unique<SearchCommand>());
    commands.push_back(std::make_unique<CopyCommand>());
    commands.push_back(std::make_unique<ChangesCommand>());
    commands.push_back(std::make_unique<CompareCommand>());
    commands.push_back(std::make_unique<NoteCommand>());
    commands.push_back(std::make_unique<RestoreCommand>());
    commands.push_back(std::make_unique<EjectCommand>());
    commands.push_back(std::make_unique<ExportCommand>());
    commands.push_back(std::make_unique<ExportFileCommand>());
    commands.push_back(std::make_unique<DragExportCommand>());
    commands.push_back(std::make_unique<SampleCommand>());
    commands.push_back(std::make_unique<TrimCommand>());
    commands.push_back(std::make_unique<WatchCommand>());
    commands.push_back(std::make_unique<EditsCommand>());
    return commands;
}

std::string overallUsage(const std::vector<std::unique_ptr<Command>>& commands) {
    std::string text =
        "Usage: tapekeep-cli [--base DIR] [--rsync PATH] [--volumes-root DIR]... [--demo] [--json] COMMAND "
        "...\n"
        "Commands:\n";
    for (const auto& command : commands) text += "  " + command->usage() + "\n";
    return text;
}

// Reads the options before the command; returns the index of the command word.
std::size_t readGlobalOptions(const std::vector<std::string>& words, GlobalOptions& options) {
    std::size_t i = 0;
    auto valueOf = [&](const std::string& option) {
        if (i + 1 >= words.size()) throw UsageError(option + " needs a value.");
        return words[++i];
    };
    for (; i < words.size() && words[i].starts_with("--"); ++i) {
        const std::string& word = words[i];
        if (word == "--base")
            options.base = valueOf(word);
        else if (word == "--rsync")
            options.rsync = valueOf(word);
        else if (word == "--volumes-root")
            options.volumeRoots.emplace_back(valueOf(word));
        else if (word == "--demo")
            options.demo = true;
        else if (word == "--json")
            options.json = true;
        else if (word == "--help")
            break;
        else if (word == "--")
            return i + 1;  // the command follows, even one that looks like an option
        else
            throw UsageError("Unknown option " + word + ".");
    }
    return i;
}

int runCommand(const std::vector<std::string>& words) {
    const auto commands = allCommands();
    GlobalOptions options;
    const std::size_t index = readGlobalOptions(words, options);
    if (index >= words.size() || words[index] == "--help" || words[index] == "help") {
        std::cout << overallUsage(commands);
        return index >= words.size() ? ExitCode::usage : ExitCode::done;
    }
    for (const auto& command : commands) {
        if (command->name() != words[index]) continue;
        Arguments arguments(
            std::vector<std::string>(words.begin() + static_cast<long>(index) + 1, words.end()));
        if (arguments.takeFlag("--json")) options.json = true;
        // With --json, standard output carries JSON alone.
        if (options.json) Log::setConsoleSink([](const std::string& line) { std::cerr << line << '\n'; });
        CliContext context(options, std::cout, std::cerr);
        return command->run(context, std::move(arguments));
    }
    std::cerr << overallUsage(commands);
    throw UsageError("Unknown command \"" + words[index] + "\".");
}

}  // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);
    // Before any thread starts, so that every thread inherits the blocked signals.
    const SignalCancellation interrupts;
    QCoreApplication application(argc, argv);  // the controllers' event loop
    std::vector<std::string> words(argv + 1, argv + argc);
    RsyncLogStore::shared().prune(30);
    try {
        return runCommand(words);
    } catch (const UsageError& error) {
        std::cerr << Output::plainText(error.what()) << '\n';
        return ExitCode::usage;
    } catch (const Cancelled&) {
        std::cerr << "Cancelled.\n";
        return ExitCode::cancelled;
    } catch (const std::exception& error) {
        std::cerr << Output::plainText(error.what()) << '\n';
        return ExitCode::failed;
    }
}
