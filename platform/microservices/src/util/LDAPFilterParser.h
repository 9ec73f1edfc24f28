// Turns filter text into an LDAPFilterData.
#ifndef CPPMICROSERVICES_SRC_UTIL_LDAPFILTERPARSER_H
#define CPPMICROSERVICES_SRC_UTIL_LDAPFILTERPARSER_H

#include "LDAPFilterData.h"

#include <cstddef>
#include <memory>
#include <string>

namespace cppmicroservices
{
    // One parse of one filter text; use Parse(). Throws std::invalid_argument with one of:
    //   "Malformed query: <rest>"               '(' or ')' expected where <rest> begins
    //   "Missing operand: <rest>"               '&', '|' or '!' without a filter after it
    //   "Too many operands for '!': <rest>"     '!' followed by a second filter
    //   "Missing attribute name: <rest>"        an item starting with its operator
    //   "Undefined operator: <rest>"            no '=', '~=', '<=' or '>=' after the key
    //   "Trailing garbage '<rest>'"             text after the closing parenthesis
    //   "Unexpected end of filter at position <n>"
    //   "Filter nested too deeply at position <n>"
    class LDAPFilterParser
    {
      public:
        static std::shared_ptr<LDAPFilterData const> Parse(std::string const& filter);

        // Deeper nesting is refused, so that neither parsing nor matching can exhaust the stack.
        static constexpr std::size_t maxDepth = 128;

      private:
        explicit LDAPFilterParser(std::string const& text) : text_(text) {}

        LDAPNode ParseFilter(std::size_t depth);
        void ParseItem(LDAPNode& node);
        void ReadValue(LDAPNode& node, bool wildcards);
        static void Prepare(LDAPNode& node);

        void SkipWhitespace() noexcept;
        bool AtEnd() const noexcept { return pos_ >= text_.size(); }
        char Peek() const noexcept { return text_[pos_]; }
        [[noreturn]] void Fail(char const* reason) const;
        [[noreturn]] void FailAtEnd() const;

        std::string const& text_;
        std::size_t pos_ = 0;
    };

    // Appends the normalised text of `node` to `out`.
    void LDAPAppendNormalized(LDAPNode const& node, std::string& out);
} // namespace cppmicroservices

#endif
