#include "cli/Output.h"

#include "core/Utf8.h"

namespace tapekeep::cli::Output {

std::string jsonText(const nlohmann::json& value, int indent) {
    return value.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string plainText(std::string_view text) {
    return escapedControlCharacters(text);
}

}  // namespace tapekeep::cli::Output
