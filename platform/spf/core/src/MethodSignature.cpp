#include "agent/spf/core/MethodSignature.h"

#include "foundation/log/DiagnosticLogger.h"

#include <cctype>
#include <set>
#include <stdexcept>

namespace agent::spf::core {

namespace {

// Deeper types are refused, so that a peer's text cannot run the reader's recursion out of
// stack.
constexpr int kMaximumNesting = 32;

const std::set<std::string> kPlainTypes{"boolean", "int",   "long", "float",    "double",
                                        "string",  "bytes", "uuid", "callback", "stream"};
const std::set<std::string> kContainerTypes{"array", "map", "optional"};

const foundation::log::diagnostic_logger& coreLogger() {
    // Never destroyed, so that late threads can still log.
    static const auto* logger = new foundation::log::diagnostic_logger("agent::spf::core");
    return *logger;
}

// Reads one signature's text from left to right; each type comes back in its canonical
// spelling.
class SignatureReader {
public:
    explicit SignatureReader(const std::string& text) : text_(text) {}

    MethodSignature read() {
        MethodSignature signature;
        expect('(');
        skipSpaces();
        if (!accept(')')) {
            for (;;) {
                signature.argumentTypes.push_back(type(0, false));
                if (accept(',')) {
                    continue;
                }
                if (accept(')')) {
                    break;
                }
                fail("expected ',' or ')'", pos_);
            }
        }
        skipSpaces();
        if (text_.compare(pos_, 2, "->") != 0) {
            fail("expected '->'", pos_);
        }
        pos_ += 2;
        signature.resultType = type(0, true);
        skipSpaces();
        if (pos_ != text_.size()) {
            fail("unexpected text after the result", pos_);
        }
        return signature;
    }

private:
    std::string type(int depth, bool topLevelResult) {
        skipSpaces();
        if (depth > kMaximumNesting) {
            fail("types nested more than " + std::to_string(kMaximumNesting) + " deep", pos_);
        }
        const std::size_t start = pos_;
        while (pos_ < text_.size() && (std::isalnum(static_cast<unsigned char>(text_[pos_])) || text_[pos_] == '_')) {
            ++pos_;
        }
        const std::string name = text_.substr(start, pos_ - start);
        if (name.empty()) {
            fail("expected a type", start);
        }
        if (kPlainTypes.count(name) != 0) {
            return name;
        }
        if (kContainerTypes.count(name) != 0) {
            expect('<');
            std::string element = type(depth + 1, false);
            expect('>');
            return name + "<" + element + ">";
        }
        if (name == "record") {
            expect(':');
            return "record:" + recordName();
        }
        if (name == "void") {
            if (!topLevelResult) {
                fail("'void' is only a result", start);
            }
            return name;
        }
        fail("unknown type '" + name + "'", start);
    }

    // A C++ name such as "geo::Path<geo::Point, 3>": up to the next ',', ')' or '>' outside
    // its own brackets, spaces at either end dropped.
    std::string recordName() {
        skipSpaces();
        const std::size_t start = pos_;
        std::string closers;  // of the brackets open in the name, innermost last
        for (; pos_ < text_.size(); ++pos_) {
            const char c = text_[pos_];
            if (c == '<' || c == '(' || c == '[') {
                closers += c == '<' ? '>' : c == '(' ? ')' : ']';
            } else if (c == '>' || c == ')' || c == ']' || c == ',') {
                if (closers.empty() && c != ']') {
                    break;
                }
                if (c != ',') {
                    if (closers.empty() || closers.back() != c) {
                        fail("unbalanced brackets in a record name", start);
                    }
                    closers.pop_back();
                }
            }
        }
        if (!closers.empty()) {
            fail("unbalanced brackets in a record name", start);
        }
        std::size_t end = pos_;
        while (end > start && text_[end - 1] == ' ') {
            --end;
        }
        if (end == start) {
            fail("record without a name", start);
        }
        return text_.substr(start, end - start);
    }

    void skipSpaces() {
        while (pos_ < text_.size() && text_[pos_] == ' ') {
            ++pos_;
        }
    }
    bool accept(char c) {
        skipSpaces();
        if (pos_ < text_.size() && text_[pos_] == c) {
            ++pos_;
            return true;
        }
        return false;
    }
    void expect(char c) {
        if (!accept(c)) {
            fail(std::string("expected '") + c + "'", pos_);
        }
    }
    [[noreturn]] void fail(const std::string& what, std::size_t offset) const {
        throw std::invalid_argument("Malformed method signature '" + text_ + "': " + what + " at offset " +
                                    std::to_string(offset));
    }

    const std::string& text_;
    std::size_t pos_ = 0;
};

}  // namespace

std::string MethodSignature::toString() const {
    std::string text = "(";
    for (std::size_t i = 0; i < argumentTypes.size(); ++i) {
        text += (i == 0 ? "" : ", ") + argumentTypes[i];
    }
    return text + ") -> " + resultType;
}

MethodSignature MethodSignature::parse(const std::string& text) {
    return SignatureReader(text).read();
}

std::string methodSignatureKey(const std::string& method) {
    return kMethodSignatureKeyPrefix + method;
}

std::map<std::string, MethodSignature> readMethodSignatures(const std::map<std::string, std::string>& metadata) {
    const std::string prefix = kMethodSignatureKeyPrefix;
    std::map<std::string, MethodSignature> signatures;
    for (auto it = metadata.lower_bound(prefix); it != metadata.end() && it->first.compare(0, prefix.size(), prefix) == 0;
         ++it) {
        const std::string method = it->first.substr(prefix.size());
        try {
            if (method.empty()) {
                throw std::invalid_argument("Method signature without a method name");
            }
            signatures.emplace(method, MethodSignature::parse(it->second));
        } catch (const std::invalid_argument& e) {
            FOUNDATION_LOG(coreLogger(), foundation::log::severity::warning)
                << "Left out the signature of method '" << method << "': " << e.what();
        }
    }
    return signatures;
}

}  // namespace agent::spf::core
