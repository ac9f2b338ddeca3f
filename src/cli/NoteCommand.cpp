#include "cli/NoteCommand.h"

#include <nlohmann/json.hpp>

#include "backup/BackupRepository.h"
#include "cli/Output.h"
#include "core/Error.h"

namespace tapekeep::cli {

int NoteCommand::run(CliContext& context, Arguments arguments) {
    const auto operands = arguments.operands(2, 3, usage());
    const auto version = context.resolveVersion(context.resolveSet(operands[0]), operands[1]);
    if (operands.size() == 3)
        if (auto failure = BackupRepository::saveNote(version, operands[2])) throw Error(*failure);
    const std::string note = BackupRepository::readNote(version);
    if (context.json())
        context.out() << Output::jsonText(
                             {{"note", note.empty() ? nlohmann::json(nullptr) : nlohmann::json(note)}})
                      << '\n';
    else if (!note.empty())
        context.out() << Output::plainText(note) << '\n';
    return 0;
}

}  // namespace tapekeep::cli
