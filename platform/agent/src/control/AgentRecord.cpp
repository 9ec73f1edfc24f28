#include "control/AgentRecord.h"

#include <nlohmann/json.hpp>

#include <limits>
#include <stdexcept>

namespace agent::control {

namespace {

std::string requiredString(const nlohmann::json& object, const char* key, const char* error) {
    const auto found = object.find(key);
    if (found == object.end() || !found->is_string() || found->get_ref<const std::string&>().empty()) {
        throw std::invalid_argument(error);
    }
    return found->get<std::string>();
}

// An integer in [minimum, maximum]; JSON numbers with a fraction or exponent never are.
std::int64_t requiredInteger(const nlohmann::json& object, const char* key, std::int64_t minimum,
                             std::int64_t maximum, const char* error) {
    const auto found = object.find(key);
    if (found == object.end()) {
        throw std::invalid_argument(error);
    }
    if (found->is_number_unsigned()) {
        const auto value = found->get<std::uint64_t>();
        if (value > static_cast<std::uint64_t>(maximum) ||
            (minimum > 0 && value < static_cast<std::uint64_t>(minimum))) {
            throw std::invalid_argument(error);
        }
        return static_cast<std::int64_t>(value);
    }
    if (found->is_number_integer()) {
        const auto value = found->get<std::int64_t>();
        if (value < minimum || value > maximum) {
            throw std::invalid_argument(error);
        }
        return value;
    }
    throw std::invalid_argument(error);
}

}  // namespace

std::string AgentRecord::serialise() const {
    nlohmann::json object = {
        {"formatVersion", kFormatVersion},
        {"name", info.getName()},
        {"exchange", info.getExchange()},
        {"processID", static_cast<std::int64_t>(info.getProcessID())},
        {"mode", toString(info.getMode())},
        {"registered", registered},
    };
    return object.dump() + "\n";
}

AgentRecord AgentRecord::parse(std::string_view text) {
    const auto object = nlohmann::json::parse(text.begin(), text.end(), nullptr, false);
    if (object.is_discarded()) {
        throw std::invalid_argument("Agent record is not valid JSON");
    }
    if (!object.is_object()) {
        throw std::invalid_argument("Agent record is not a JSON object");
    }
    const auto version = object.find("formatVersion");
    if (version == object.end()) {
        throw std::invalid_argument("Agent record has no format version");
    }
    if (!version->is_number_integer() || version->get<std::int64_t>() != kFormatVersion) {
        throw std::invalid_argument("Agent record format version is not supported");
    }
    auto name = requiredString(object, "name", "Agent record needs a name");
    auto exchange = requiredString(object, "exchange", "Agent record needs an exchange");
    // kill() reads 0 and negative IDs as process groups: they must never get that far.
    const auto pid = requiredInteger(object, "processID", 1, std::numeric_limits<pid_t>::max(),
                                     "Agent record needs a positive process ID");
    const auto mode = object.find("mode");
    boost::optional<AgentMode> parsedMode;
    if (mode != object.end() && mode->is_string()) {
        parsedMode = parseAgentMode(mode->get_ref<const std::string&>());
    }
    if (!parsedMode) {
        throw std::invalid_argument("Agent record mode must be korvexdrive or desktopservices");
    }
    const auto registered = requiredInteger(object, "registered", 0, std::numeric_limits<std::int64_t>::max(),
                                            "Agent record needs a registration time");
    return AgentRecord{AgentInfo(std::move(name), std::move(exchange), static_cast<pid_t>(pid), *parsedMode),
                       registered};
}

bool AgentRecord::isRecordFileName(std::string_view fileName) noexcept {
    return fileName.size() > kFilePrefix.size() + kFileSuffix.size() &&
           fileName.substr(0, kFilePrefix.size()) == kFilePrefix &&
           fileName.substr(fileName.size() - kFileSuffix.size()) == kFileSuffix;
}

}  // namespace agent::control
