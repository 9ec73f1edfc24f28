#include "apps/common/CommandLine.h"

#include <algorithm>
#include <stdexcept>

namespace apps::common {

namespace {

bool startsWith(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

}  // namespace

bool readCommandLine(const std::vector<std::string>& arguments, const std::vector<CommandLineOption>& options) {
    std::vector<bool> seen(options.size(), false);
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (argument == "--help" || argument == "-h") {
            return true;
        }
        if (!startsWith(argument, "--")) {
            throw std::invalid_argument("Unexpected argument '" + argument + "'");
        }
        const auto equals = argument.find('=');
        const std::string name = argument.substr(0, equals);
        const auto option = std::find_if(options.begin(), options.end(),
                                         [&name](const CommandLineOption& known) { return known.name == name; });
        if (option == options.end()) {
            throw std::invalid_argument("Unknown option '" + name + "'");
        }
        std::string value;
        if (equals != std::string::npos) {
            value = argument.substr(equals + 1);
        } else if (i + 1 < arguments.size() && !startsWith(arguments[i + 1], "--")) {
            value = arguments[++i];
        }
        if (value.empty()) {
            throw std::invalid_argument("Option " + name + " needs a value");
        }
        const auto index = static_cast<std::size_t>(option - options.begin());
        if (seen[index]) {
            throw std::invalid_argument("Option " + name + " is given twice");
        }
        seen[index] = true;
        option->take(value);
    }
    for (std::size_t index = 0; index < options.size(); ++index) {
        if (options[index].required && !seen[index]) {
            throw std::invalid_argument("Option " + options[index].name + " is required");
        }
    }
    return false;
}

void requireExchangeUrl(const std::string& what, const std::string& url) {
    if (!startsWith(url, "ipc://") && !startsWith(url, "tcp://")) {
        throw std::invalid_argument(what + " '" + url + "' is not an ipc:// or tcp:// URL");
    }
}

}  // namespace apps::common
