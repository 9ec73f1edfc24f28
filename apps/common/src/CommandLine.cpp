#include "apps/common/CommandLine.h"

#include <algorithm>
#include <iostream>
#include <sstream>
#include <stdexcept>

namespace apps::common {

namespace {

bool startsWith(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

// "-h, --help", "--name N".
std::string optionColumn(const CLI::Option& option) {
    std::string names;
    for (const auto& name : option.get_snames()) {
        names += (names.empty() ? "-" : ", -") + name;
    }
    for (const auto& name : option.get_lnames()) {
        names += (names.empty() ? "--" : ", --") + name;
    }
    return option.get_type_name().empty() ? names : names + " " + option.get_type_name();
}

// The help as the programs here have always printed it, --help last.
class HelpLayout : public CLI::Formatter {
public:
    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode) const override {
        const CLI::Option* help = app->get_help_ptr();
        auto options = app->get_options([help](const CLI::Option* option) { return option != help; });
        std::ostringstream out;
        out << "usage: " << name;
        for (const CLI::Option* option : options) {
            out << (option->get_required() ? " " + optionColumn(*option) : " [" + optionColumn(*option) + "]");
        }
        out << "\n\n";
        if (!app->get_description().empty()) {
            out << app->get_description() << "\n\n";
        }
        if (help != nullptr) {
            options.push_back(help);
        }
        std::size_t width = 0;
        for (const CLI::Option* option : options) {
            width = std::max(width, optionColumn(*option).size());
        }
        for (const CLI::Option* option : options) {
            const auto column = optionColumn(*option);
            out << "  " << column << std::string(width + 4 - column.size(), ' ') << option->get_description()
                << (option->get_required() ? " (required)" : "") << "\n";
        }
        if (!app->get_footer().empty()) {
            out << "\n" << app->get_footer() << "\n";
        }
        return out.str();
    }
};

// The line that names what is wrong with the command line `app` failed to read.
std::string fault(const CLI::App& app, const CLI::ParseError& error) {
    const bool extras = dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr;
    const bool required = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
    // An argument nothing took comes before a missing option: it is more likely the mistake
    // (a misspelt option, or a value meant for one).
    const auto left = app.remaining();
    if ((extras || required) && !left.empty()) {
        const auto& argument = left.front();
        return startsWith(argument, "--") ? "Unknown option '" + argument.substr(0, argument.find('=')) + "'"
                                          : "Unexpected argument '" + argument + "'";
    }
    const auto options = app.get_options();
    if (required) {
        const auto missing = std::find_if(options.begin(), options.end(), [](const CLI::Option* option) {
            return option->get_required() && option->count() == 0;
        });
        if (missing != options.end()) {
            return "Option " + (*missing)->get_name() + " is required";
        }
    }
    // More values than an option takes: given twice, as addValueOption's take at most one.
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
        const auto twice = std::find_if(options.begin(), options.end(),
                                        [](const CLI::Option* option) { return option->count() > 1; });
        if (twice != options.end()) {
            return "Option " + (*twice)->get_name() + " is given twice";
        }
    }
    return error.what();
}

}  // namespace

void setUpCommandLine(CLI::App& app) {
    app.set_help_flag("-h,--help", "show this text and exit");
    app.formatter(std::make_shared<HelpLayout>());
}

CLI::Option* addValueOption(CLI::App& app, const std::string& name, const std::string& valueName,
                            const std::string& description, std::function<void(const std::string&)> take) {
    auto* option = app.add_option_function<std::string>(
        name,
        [name, take = std::move(take)](const std::string& value) {
            if (value.empty()) {
                throw CLI::ValidationError("Option " + name + " needs a value");
            }
            try {
                take(value);
            } catch (const std::invalid_argument& refused) {
                throw CLI::ValidationError(refused.what());
            }
        },
        description);
    // Taking no value or one: CLI11 then stops at the next option instead of taking it as the
    // value, and the empty value it records is refused above.
    option->expected(0, 1)->type_name(valueName);
    return option;
}

std::optional<int> parseCommandLine(CLI::App& app, int argc, const char* const* argv) {
    try {
        app.parse(argc, argv);
        return std::nullopt;
    } catch (const CLI::Success&) {
        std::cout << app.help();
        return 0;
    } catch (const CLI::ParseError& error) {
        std::cerr << app.get_name() << ": " << fault(app, error) << "\n\n" << app.help();
        return 2;
    }
}

void requireExchangeUrl(const std::string& what, const std::string& url) {
    if (!startsWith(url, "ipc://") && !startsWith(url, "tcp://")) {
        throw std::invalid_argument(what + " '" + url + "' is not an ipc:// or tcp:// URL");
    }
}

}  // namespace apps::common
