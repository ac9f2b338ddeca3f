#include "cli/SettingsCommand.h"

#include "app/AppSettings.h"
#include "app/SettingsKeys.h"
#include "cli/CliError.h"
#include "cli/Output.h"

namespace tapekeep::cli {
namespace {

const SettingsKeys::Definition& definition(const std::string& key) {
    const auto* found = SettingsKeys::find(key);
    if (found == nullptr)
        throw UsageError("Unknown setting \"" + key + "\". Run tapekeep-cli settings list.");
    return *found;
}

std::string settingText(const nlohmann::json& value) {
    return Output::plainText(value.is_string() ? value.get<std::string>() : Output::jsonText(value, -1));
}

}  // namespace

int SettingsCommand::run(CliContext& context, Arguments arguments) {
    const auto operands = arguments.operands(1, 3, usage());
    const std::string& action = operands[0];
    if (action == "list" && operands.size() == 1) return list(context);
    if (action == "get" && operands.size() == 2) return get(context, operands[1]);
    if (action == "set" && operands.size() == 3) return set(context, operands[1], operands[2]);
    throw UsageError("Usage: " + usage());
}

int SettingsCommand::list(CliContext& context) {
    context.settings();  // the start-up repairs run before anything is shown
    const auto all = SettingsKeys::readAll(context.store());
    if (context.json()) {
        context.out() << Output::jsonText(all) << '\n';
        return 0;
    }
    for (const auto& item : SettingsKeys::all())
        context.out() << item.key << " = " << settingText(all.at(item.key)) << '\n';
    return 0;
}

int SettingsCommand::get(CliContext& context, const std::string& key) {
    const auto& item = definition(key);
    context.settings();
    const auto value = SettingsKeys::read(context.store(), item);
    context.out() << (context.json() ? Output::jsonText(value, -1) : settingText(value)) << '\n';
    return 0;
}

int SettingsCommand::set(CliContext& context, const std::string& key, const std::string& text) {
    const auto& item = definition(key);
    const auto value = SettingsKeys::parseValue(key, text);
    if (!value)
        throw UsageError("The setting " + key + " takes " + SettingsKeys::describeExpected(item) +
                         ", not \"" + text + "\".");
    context.store().setValue(key, *value);
    if (context.json()) context.out() << Output::jsonText({{key, *value}}, -1) << '\n';
    return 0;
}

}  // namespace tapekeep::cli
