#include "Console.h"

#include "JsonValues.h"

#include "agent/spf/core/Invokable.h"
#include "agent/spf/core/MethodSignature.h"
#include "agent/spf/legacyservicepublisher/PublisherStatus.h"
#include "agent/spf/servicepublisher/InvokablePublisher.h"

#include <boost/uuid/uuid_io.hpp>

#include <cppmicroservices/cm/ConfigurationAdmin.hpp>

#include <algorithm>
#include <chrono>
#include <future>
#include <iomanip>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace spfhost {

using agent::spf::core::CompletionHandler;
using agent::spf::core::GenericPayload;
using agent::spf::core::Invokable;
using agent::spf::core::MethodSignature;
using agent::spf::servicepublisher::InvokableFactoryDescription;
using nlohmann::json;
using InvokablePublisher = agent::spf::servicepublisher::InvokablePublisher<Invokable>;

namespace {

const std::string kSignaturePrefix = agent::spf::core::kMethodSignatureKeyPrefix;
const std::string kFactoryPid = "qz.spf.legacyservicepublisher";
constexpr std::chrono::milliseconds kDefaultCallTimeout{10000};
constexpr std::chrono::milliseconds kDefaultWait{10000};

const char* const kHelp =
    "list [--json]                    the published invokables\n"
    "describe NAME [--version V]      methods with their types, and properties\n"
    "call NAME METHOD [ARG...] [--timeout MS] [--version V] [--returns TYPE]\n"
    "                                 calls a method; ARG is JSON (a bare word is a string) or TYPE:JSON\n"
    "configs                          the publisher configurations in force\n"
    "wait NAME [MS]                   until an invokable of that name is published\n"
    "status                           connections, configured services, and the calls of each invokable\n"
    "help                             this text\n";

// A command's words: positional ones, and the values of the options it takes.
struct Words {
    std::vector<std::string> positional;
    std::map<std::string, std::string> options;
    std::set<std::string> flags;
};

Words sortWords(const std::vector<std::string>& words, const std::set<std::string>& options,
                const std::set<std::string>& flags = {}) {
    Words sorted;
    for (std::size_t i = 1; i < words.size(); ++i) {
        const auto& word = words[i];
        if (word.size() > 2 && word.compare(0, 2, "--") == 0) {
            if (flags.count(word) != 0) {
                sorted.flags.insert(word);
            } else if (options.count(word) != 0) {
                if (i + 1 == words.size()) {
                    throw std::invalid_argument("Option " + word + " needs a value");
                }
                sorted.options[word] = words[++i];
            } else {
                throw std::invalid_argument("Unknown option " + word + " for " + words[0]);
            }
        } else {
            sorted.positional.push_back(word);
        }
    }
    return sorted;
}

std::chrono::milliseconds milliseconds(const std::string& text) {
    std::size_t end = 0;
    long long value = -1;
    try {
        value = std::stoll(text, &end);
    } catch (const std::exception&) {
    }
    if (end != text.size() || value < 0) {
        throw std::invalid_argument("Not a number of milliseconds: " + text);
    }
    return std::chrono::milliseconds(value);
}

std::shared_ptr<InvokablePublisher> invokablePublisher(cppmicroservices::BundleContext context) {
    const auto reference = context.GetServiceReference<InvokablePublisher>();
    auto publisher = reference ? context.GetService(reference) : nullptr;
    if (!publisher) {
        throw std::runtime_error("The invokable publisher is not running");
    }
    return publisher;
}

std::string uuidText(const boost::uuids::uuid& id) {
    return boost::uuids::to_string(id);
}

std::string endpointOf(const InvokableFactoryDescription& factory) {
    const auto found = factory.endpointProperties.find("endpointAddress");
    return found == factory.endpointProperties.end() ? "" : found->second.ToStringNoExcept();
}

// The factory of that name with the highest version; with `version` ("2" or "2.1"), the highest
// of that major that is at least that version.
InvokableFactoryDescription chooseFactory(const InvokablePublisher& publisher, const std::string& name,
                                          const std::optional<std::string>& version) {
    std::optional<InvokableFactoryDescription> chosen;
    std::uint32_t major = 0;
    std::uint32_t minor = 0;
    if (version) {
        char dot = 0;
        std::istringstream in(*version);
        if (!(in >> major) || (in >> dot && (dot != '.' || !(in >> minor)))) {
            throw std::invalid_argument("Not a version: " + *version);
        }
    }
    for (const auto& factory : publisher.getInvokableFactories()) {
        if (factory.name != name ||
            (version && (factory.version.getMajor() != major || factory.version.getMinor() < minor))) {
            continue;
        }
        if (!chosen || chosen->version < factory.version) {
            chosen = factory;
        }
    }
    if (!chosen) {
        throw std::invalid_argument("No invokable named " + name + (version ? " of version " + *version : ""));
    }
    return *chosen;
}

// The method signatures the instance publishes, by method name (a malformed one is logged and
// left out).
std::map<std::string, MethodSignature> signaturesOf(const InvokableFactoryDescription& factory) {
    std::map<std::string, std::string> metadata;
    for (const auto& [key, value] : factory.serviceProperties) {
        metadata[key] = value.ToStringNoExcept();
    }
    return agent::spf::core::readMethodSignatures(metadata);
}

// An argument as typed: TYPE:JSON names its type; otherwise `expected` does.
void appendArgument(GenericPayload& payload, std::size_t index, const std::string& word,
                    const std::optional<std::string>& expected) {
    std::string type;
    std::string text = word;
    const auto colon = word.find(':');
    if (colon != std::string::npos && JsonValues::knows(word.substr(0, colon))) {
        type = word.substr(0, colon);
        text = word.substr(colon + 1);
    } else if (expected) {
        type = *expected;
    } else {
        throw std::invalid_argument("Argument " + std::to_string(index + 1) +
                                    ": the method has no published signature; give it as TYPE:JSON");
    }
    if (!JsonValues::knows(type) || type == "void") {
        throw std::invalid_argument("Argument " + std::to_string(index + 1) + ": a " + type +
                                    " cannot be given from the console");
    }
    json value;
    try {
        value = json::parse(text);
    } catch (const json::parse_error&) {
        if (type != "string" && type != "optional<string>") {
            throw std::invalid_argument("Argument " + std::to_string(index + 1) + ": not JSON: " + text);
        }
        value = text;  // a bare word
    }
    try {
        JsonValues::append(payload, type, value);
    } catch (const std::invalid_argument& e) {
        throw std::invalid_argument("Argument " + std::to_string(index + 1) + ": " + e.what());
    }
}

// Columns as wide as their widest cell, two blanks apart.
void printTable(const std::vector<std::vector<std::string>>& rows, std::ostream& out, const std::string& indent) {
    std::vector<std::size_t> widths(rows.front().size(), 0);
    for (const auto& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
    }
    for (const auto& row : rows) {
        out << indent;
        for (std::size_t i = 0; i + 1 < row.size(); ++i) {
            out << std::left << std::setw(static_cast<int>(widths[i] + 2)) << row[i];
        }
        out << row.back() << "\n";
    }
}

}  // namespace

Console::Console(cppmicroservices::BundleContext context, std::optional<std::filesystem::path> configurationFolder)
    : context_(std::move(context)), configurationFolder_(std::move(configurationFolder)) {}

bool Console::execute(const std::string& line, std::ostream& out) const {
    try {
        run(split(line), out);
        return true;
    } catch (const std::exception& e) {
        out << "error: " << e.what() << "\n";
        return false;
    }
}

std::vector<std::string> Console::split(const std::string& line) {
    std::vector<std::string> words;
    std::string word;
    bool inWord = false;
    char quote = 0;
    for (const char c : line) {
        if (quote != 0) {
            if (c == quote) {
                quote = 0;
                if (c == '"') word += c;
            } else {
                word += c;
            }
        } else if (c == '\'' || c == '"') {
            quote = c;
            inWord = true;
            if (c == '"') word += c;
        } else if (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
            if (inWord) words.push_back(std::move(word));
            word.clear();
            inWord = false;
        } else {
            word += c;
            inWord = true;
        }
    }
    if (quote != 0) {
        throw std::invalid_argument("Unbalanced quotes");
    }
    if (inWord) words.push_back(std::move(word));
    return words;
}

void Console::run(const std::vector<std::string>& words, std::ostream& out) const {
    if (words.empty()) {
        return;
    }
    const auto& command = words[0];
    if (command == "list") {
        list(words, out);
    } else if (command == "describe") {
        describe(words, out);
    } else if (command == "call") {
        call(words, out);
    } else if (command == "configs") {
        configs(out);
    } else if (command == "wait") {
        wait(words, out);
    } else if (command == "status") {
        status(out);
    } else if (command == "help") {
        out << kHelp;
    } else {
        throw std::invalid_argument("Unknown command " + command + " (try help)");
    }
}

void Console::list(const std::vector<std::string>& words, std::ostream& out) const {
    const auto sorted = sortWords(words, {}, {"--json"});
    if (!sorted.positional.empty()) {
        throw std::invalid_argument("list takes no arguments");
    }
    auto factories = invokablePublisher(context_)->getInvokableFactories();
    std::sort(factories.begin(), factories.end(), [](const auto& a, const auto& b) {
        return std::tie(a.name, a.version) < std::tie(b.name, b.version);
    });
    if (sorted.flags.count("--json") != 0) {
        json all = json::array();
        for (const auto& factory : factories) {
            all.push_back({{"name", factory.name},
                           {"version", factory.version.toString()},
                           {"endpoint", endpointOf(factory)},
                           {"instance", uuidText(factory.uuid)}});
        }
        out << all.dump() << "\n";
        return;
    }
    std::vector<std::vector<std::string>> rows = {{"NAME", "VERSION", "ENDPOINT", "INSTANCE"}};
    for (const auto& factory : factories) {
        rows.push_back({factory.name, factory.version.toString(), endpointOf(factory), uuidText(factory.uuid)});
    }
    printTable(rows, out, "");
}

void Console::describe(const std::vector<std::string>& words, std::ostream& out) const {
    const auto sorted = sortWords(words, {"--version"});
    if (sorted.positional.size() != 1) {
        throw std::invalid_argument("describe takes one NAME");
    }
    const auto version = sorted.options.count("--version") ? std::optional(sorted.options.at("--version")) : std::nullopt;
    const auto publisher = invokablePublisher(context_);
    const auto factory = chooseFactory(*publisher, sorted.positional[0], version);
    out << factory.name << " " << factory.version.toString() << "  instance " << uuidText(factory.uuid) << "  on "
        << endpointOf(factory) << "\n";
    const auto signatures = signaturesOf(factory);
    std::set<std::string> methods;
    for (const auto& [method, signature] : signatures) methods.insert(method);
    {
        const auto invokable = publisher->getInvokable(factory.handle);
        for (const auto& method : invokable->getSupportedNames()) methods.insert(method);
    }
    out << "methods:\n";
    for (const auto& method : methods) {
        const auto found = signatures.find(method);
        out << "  " << method
            << (found == signatures.end() ? "  (no published signature)" : " " + found->second.toString()) << "\n";
    }
    out << "properties:\n";
    for (const auto& [key, value] : factory.serviceProperties) {
        if (key.compare(0, kSignaturePrefix.size(), kSignaturePrefix) != 0) {
            out << "  " << key << " = " << value.ToStringNoExcept() << "\n";
        }
    }
}

void Console::call(const std::vector<std::string>& words, std::ostream& out) const {
    const auto sorted = sortWords(words, {"--timeout", "--version", "--returns"});
    if (sorted.positional.size() < 2) {
        throw std::invalid_argument("call takes NAME METHOD [ARG...]");
    }
    const auto& name = sorted.positional[0];
    const auto& method = sorted.positional[1];
    const auto option = [&](const std::string& key) {
        const auto found = sorted.options.find(key);
        return found == sorted.options.end() ? std::nullopt : std::optional(found->second);
    };
    const auto timeout = option("--timeout") ? milliseconds(*option("--timeout")) : kDefaultCallTimeout;
    const auto publisher = invokablePublisher(context_);
    const auto factory = chooseFactory(*publisher, name, option("--version"));

    std::optional<MethodSignature> signature;
    const auto signatures = signaturesOf(factory);
    if (const auto found = signatures.find(method); found != signatures.end()) {
        signature = found->second;
    }
    const std::size_t count = sorted.positional.size() - 2;
    if (signature && signature->argumentTypes.size() != count) {
        throw std::invalid_argument(method + " takes " + std::to_string(signature->argumentTypes.size()) +
                                    " arguments " + signature->toString() + ", got " + std::to_string(count));
    }
    GenericPayload arguments;
    for (std::size_t i = 0; i < count; ++i) {
        appendArgument(arguments, i, sorted.positional[i + 2],
                       signature ? std::optional(signature->argumentTypes[i]) : std::nullopt);
    }
    const auto resultType = option("--returns") ? *option("--returns") : signature ? signature->resultType : "";
    if (resultType.empty()) {
        throw std::invalid_argument(method + " has no published signature; give --returns TYPE");
    }
    if (!JsonValues::knows(resultType)) {
        throw std::invalid_argument("A result of type " + resultType + " cannot be shown by the console");
    }

    auto promise = std::make_shared<std::promise<GenericPayload>>();
    auto outcome = promise->get_future();
    CompletionHandler handler([promise](GenericPayload result) { promise->set_value(std::move(result)); },
                              [promise](std::exception_ptr failure) { promise->set_exception(std::move(failure)); },
                              JsonValues::typeOf(resultType));
    const auto invokable = publisher->getInvokable(factory.handle);
    const auto start = std::chrono::steady_clock::now();
    invokable->invokeAsync(timeout, method, handler, std::move(arguments));
    // The invokable answers by its timeout; the margin only guards against one that does not.
    if (outcome.wait_for(timeout + std::chrono::seconds(5)) != std::future_status::ready) {
        throw std::runtime_error(method + " did not complete");
    }
    const auto result = outcome.get();
    const std::chrono::duration<double, std::milli> roundTrip = std::chrono::steady_clock::now() - start;
    out << (resultType == "void" ? json(nullptr) : JsonValues::read(result, 0, resultType)).dump() << "\n";
    out << "round trip " << std::fixed << std::setprecision(3) << roundTrip.count() << " ms\n";
}

void Console::configs(std::ostream& out) const {
    const auto reference = context_.GetServiceReference<cppmicroservices::service::cm::ConfigurationAdmin>();
    if (!reference) {
        throw std::runtime_error("Configuration Admin is not running");
    }
    for (const auto& configuration : context_.GetService(reference)->ListConfigurations()) {
        if (configuration->GetFactoryPid() != kFactoryPid) {
            continue;
        }
        // Configuration Admin keeps a folder's files in force under their own names.
        const auto file = configurationFolder_ ? *configurationFolder_ / (configuration->GetPid() + ".json")
                                               : std::filesystem::path();
        std::ostringstream properties;
        cppmicroservices::any_value_to_json(properties, configuration->GetProperties());
        out << configuration->GetPid().substr(kFactoryPid.size() + 1) << "  from "
            << (!file.empty() && std::filesystem::exists(file) ? file.string() : "Configuration Admin") << "\n  "
            << properties.str() << "\n";
    }
}

void Console::status(std::ostream& out) const {
    using agent::spf::legacyservicepublisher::PublisherStatus;
    const auto reference = context_.GetServiceReference<PublisherStatus>();
    const auto publisherStatus = reference ? context_.GetService(reference) : nullptr;
    if (!publisherStatus) {
        throw std::runtime_error("The publisher is not running");
    }
    const auto report = publisherStatus->report();
    out << "connections:\n";
    if (report.connections.empty()) out << "  (no configuration names an endpoint)\n";
    for (const auto& connection : report.connections) {
        static const char* const states[] = {"connected", "pending", "failed for good", "waiting"};
        out << "  " << connection.endpoint << "  " << states[static_cast<int>(connection.state)];
        if (!connection.exchange.empty() && connection.exchange != connection.endpoint) {
            out << "  " << connection.exchange;
        }
        if (!connection.detail.empty()) out << "  (" << connection.detail << ")";
        out << "\n";
    }
    out << "services:\n";
    if (report.services.empty()) out << "  (no configuration asks for a service)\n";
    for (const auto& service : report.services) {
        out << "  " << service.name << " " << service.major << " (" << service.configuration << "/" << service.uniqueID
            << ")";
        if (!service.runningOn.empty()) {
            out << "  running on";
            for (const auto& endpoint : service.runningOn) out << " " << endpoint;
        }
        out << "\n";
        for (const auto& problem : service.problems) out << "    not running on " << problem << "\n";
    }
    out << "invokables:\n";
    std::vector<std::vector<std::string>> rows = {
        {"NAME", "VERSION", "ENDPOINT", "CALLS", "FAILURES", "TIMEOUTS", "P50 ms", "P90 ms", "P99 ms"}};
    const auto milliseconds = [](const std::optional<double>& value) {
        if (!value) return std::string("-");
        std::ostringstream text;
        text << std::setprecision(3) << *value;
        return text.str();
    };
    for (const auto& invokable : report.invokables) {
        rows.push_back({invokable.name, invokable.version.toString(), invokable.endpoint,
                        std::to_string(invokable.calls.calls), std::to_string(invokable.calls.failures),
                        std::to_string(invokable.calls.timeouts), milliseconds(invokable.calls.p50),
                        milliseconds(invokable.calls.p90), milliseconds(invokable.calls.p99)});
    }
    printTable(rows, out, "  ");
}

void Console::wait(const std::vector<std::string>& words, std::ostream& out) const {
    const auto sorted = sortWords(words, {});
    if (sorted.positional.empty() || sorted.positional.size() > 2) {
        throw std::invalid_argument("wait takes NAME [MS]");
    }
    const auto& name = sorted.positional[0];
    const auto patience = sorted.positional.size() == 2 ? milliseconds(sorted.positional[1]) : kDefaultWait;
    const auto deadline = std::chrono::steady_clock::now() + patience;
    const auto publisher = invokablePublisher(context_);
    for (;;) {
        for (const auto& factory : publisher->getInvokableFactories()) {
            if (factory.name == name) {
                out << name << " " << factory.version.toString() << " is published on " << endpointOf(factory) << "\n";
                return;
            }
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            throw std::runtime_error(name + " was not published within " + std::to_string(patience.count()) + " ms");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

}  // namespace spfhost
