#include "LDAPFilterParser.h"

#include <cerrno>
#include <cstdlib>
#include <stdexcept>

namespace cppmicroservices
{
    namespace
    {
        bool
        IsSpace(char c) noexcept
        {
            return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
        }

        char
        AsciiLower(char c) noexcept
        {
            return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
        }

        bool
        EqualsIgnoreCase(std::string const& s, char const* lower) noexcept
        {
            std::size_t i = 0;
            for (; i < s.size() && lower[i] != '\0'; ++i)
            {
                if (AsciiLower(s[i]) != lower[i])
                {
                    return false;
                }
            }
            return i == s.size() && lower[i] == '\0';
        }

        // True when nothing but whitespace follows `end`.
        bool
        OnlySpaceAfter(char const* end) noexcept
        {
            while (*end != '\0' && IsSpace(*end))
            {
                ++end;
            }
            return *end == '\0';
        }

        bool
        HasDigit(std::string const& s) noexcept
        {
            for (char c : s)
            {
                if (c >= '0' && c <= '9')
                {
                    return true;
                }
            }
            return false;
        }

        void
        AppendEscaped(std::string const& value, std::string& out)
        {
            for (char c : value)
            {
                if (c == '\\' || c == '(' || c == ')' || c == '*')
                {
                    out += '\\';
                }
                out += c;
            }
        }
    } // namespace

    std::shared_ptr<LDAPFilterData const>
    LDAPFilterParser::Parse(std::string const& filter)
    {
        LDAPFilterParser parser(filter);
        auto data = std::make_shared<LDAPFilterData>();
        parser.SkipWhitespace();
        data->root = parser.ParseFilter(1);
        parser.SkipWhitespace();
        if (!parser.AtEnd())
        {
            throw std::invalid_argument("Trailing garbage '" + filter.substr(parser.pos_) + "'");
        }
        LDAPAppendNormalized(data->root, data->normalized);
        return data;
    }

    // Expects pos_ at the '(' of a filter; leaves it just after the matching ')'.
    LDAPNode
    LDAPFilterParser::ParseFilter(std::size_t depth)
    {
        if (depth > maxDepth)
        {
            throw std::invalid_argument("Filter nested too deeply at position " + std::to_string(pos_));
        }
        if (AtEnd())
        {
            FailAtEnd();
        }
        if (Peek() != '(')
        {
            Fail("Malformed query");
        }
        ++pos_;
        SkipWhitespace();
        if (AtEnd())
        {
            FailAtEnd();
        }
        LDAPNode node;
        char const c = Peek();
        if (c == '&' || c == '|' || c == '!')
        {
            node.op = c == '&' ? LDAPOp::And : (c == '|' ? LDAPOp::Or : LDAPOp::Not);
            ++pos_;
            SkipWhitespace();
            while (!AtEnd() && Peek() == '(')
            {
                if (node.op == LDAPOp::Not && !node.children.empty())
                {
                    Fail("Too many operands for '!'");
                }
                node.children.push_back(ParseFilter(depth + 1));
                SkipWhitespace();
            }
            if (AtEnd())
            {
                FailAtEnd();
            }
            if (node.children.empty())
            {
                Fail("Missing operand");
            }
        }
        else
        {
            ParseItem(node);
        }
        if (AtEnd())
        {
            FailAtEnd();
        }
        if (Peek() != ')')
        {
            Fail("Malformed query");
        }
        ++pos_;
        return node;
    }

    // Reads "key op value"; leaves pos_ at the closing ')' or at the end of the text.
    void
    LDAPFilterParser::ParseItem(LDAPNode& node)
    {
        std::size_t const keyStart = pos_;
        while (!AtEnd())
        {
            char const c = Peek();
            if (c == '=' || c == '<' || c == '>' || c == '~' || c == '(' || c == ')')
            {
                break;
            }
            ++pos_;
        }
        std::size_t keyEnd = pos_;
        while (keyEnd > keyStart && IsSpace(text_[keyEnd - 1]))
        {
            --keyEnd;
        }
        if (keyEnd == keyStart)
        {
            if (AtEnd())
            {
                FailAtEnd();
            }
            Fail("Missing attribute name");
        }
        node.key = text_.substr(keyStart, keyEnd - keyStart);
        if (AtEnd())
        {
            FailAtEnd();
        }

        char const c = Peek();
        bool const twoChar = (c == '~' || c == '<' || c == '>') && pos_ + 1 < text_.size() && text_[pos_ + 1] == '=';
        if (c == '=')
        {
            node.op = LDAPOp::Equal;
            ++pos_;
        }
        else if (twoChar)
        {
            node.op = c == '~' ? LDAPOp::Approx : (c == '<' ? LDAPOp::LessEq : LDAPOp::GreaterEq);
            pos_ += 2;
        }
        else
        {
            Fail("Undefined operator");
        }
        SkipWhitespace();
        ReadValue(node, node.op == LDAPOp::Equal);
        Prepare(node);
    }

    // Unescapes the value up to the ')' that closes the item. With `wildcards`, an unescaped
    // '*' splits the value into substring pieces (a lone '*' means presence).
    void
    LDAPFilterParser::ReadValue(LDAPNode& node, bool wildcards)
    {
        std::string piece;
        std::size_t depth = 0;
        bool sawWildcard = false;
        while (true)
        {
            if (AtEnd())
            {
                FailAtEnd();
            }
            char const c = Peek();
            if (c == ')' && depth == 0)
            {
                break;
            }
            ++pos_;
            if (c == '\\')
            {
                if (AtEnd())
                {
                    FailAtEnd();
                }
                piece += Peek();
                ++pos_;
                continue;
            }
            if (c == '(')
            {
                ++depth;
            }
            else if (c == ')')
            {
                --depth;
            }
            else if (c == '*' && wildcards)
            {
                sawWildcard = true;
                node.value += piece;
                node.pieces.push_back(std::move(piece));
                piece.clear();
                continue;
            }
            piece += c;
        }
        if (!sawWildcard)
        {
            node.value = std::move(piece);
            return;
        }
        node.value += piece;
        node.pieces.push_back(std::move(piece));
        if (node.pieces.size() == 2 && node.pieces[0].empty() && node.pieces[1].empty())
        {
            node.op = LDAPOp::Present;
            node.pieces.clear();
        }
        else
        {
            node.op = LDAPOp::Substring;
        }
    }

    // Works out the comparison forms of the value once, so that matching does not have to.
    void
    LDAPFilterParser::Prepare(LDAPNode& node)
    {
        if (node.op == LDAPOp::Present || node.op == LDAPOp::Substring)
        {
            return;
        }
        std::string const& v = node.value;
        if (node.op == LDAPOp::Approx)
        {
            for (char c : v)
            {
                if (!IsSpace(c))
                {
                    node.approx += AsciiLower(c);
                }
            }
        }
        if (EqualsIgnoreCase(v, "true"))
        {
            node.boolValue = 1;
        }
        else if (EqualsIgnoreCase(v, "false"))
        {
            node.boolValue = 0;
        }
        if (v.find('\0') != std::string::npos || !HasDigit(v))
        {
            return;
        }
        char const* const text = v.c_str();
        char* end = nullptr;
        errno = 0;
        long long const s = std::strtoll(text, &end, 10);
        if (errno == 0 && end != text && OnlySpaceAfter(end))
        {
            node.hasSigned = true;
            node.signedValue = s;
        }
        std::size_t first = 0;
        while (first < v.size() && IsSpace(v[first]))
        {
            ++first;
        }
        if (first < v.size() && v[first] != '-')
        {
            errno = 0;
            unsigned long long const u = std::strtoull(text, &end, 10);
            if (errno == 0 && end != text && OnlySpaceAfter(end))
            {
                node.hasUnsigned = true;
                node.unsignedValue = u;
            }
        }
        errno = 0;
        double const d = std::strtod(text, &end);
        if (errno == 0 && end != text && OnlySpaceAfter(end))
        {
            node.hasDouble = true;
            node.doubleValue = d;
        }
    }

    void
    LDAPFilterParser::SkipWhitespace() noexcept
    {
        while (!AtEnd() && IsSpace(Peek()))
        {
            ++pos_;
        }
    }

    void
    LDAPFilterParser::Fail(char const* reason) const
    {
        throw std::invalid_argument(std::string(reason) + ": " + text_.substr(pos_));
    }

    void
    LDAPFilterParser::FailAtEnd() const
    {
        throw std::invalid_argument("Unexpected end of filter at position " + std::to_string(text_.size()));
    }

    void
    LDAPAppendNormalized(LDAPNode const& node, std::string& out)
    {
        out += '(';
        switch (node.op)
        {
            case LDAPOp::And:
            case LDAPOp::Or:
            case LDAPOp::Not:
                out += node.op == LDAPOp::And ? '&' : (node.op == LDAPOp::Or ? '|' : '!');
                for (LDAPNode const& child : node.children)
                {
                    LDAPAppendNormalized(child, out);
                }
                break;
            case LDAPOp::Present:
                out += node.key;
                out += "=*";
                break;
            case LDAPOp::Substring:
                out += node.key;
                out += '=';
                for (std::size_t i = 0; i < node.pieces.size(); ++i)
                {
                    if (i > 0)
                    {
                        out += '*';
                    }
                    AppendEscaped(node.pieces[i], out);
                }
                break;
            case LDAPOp::Equal:
            case LDAPOp::Approx:
            case LDAPOp::LessEq:
            case LDAPOp::GreaterEq:
                out += node.key;
                out += node.op == LDAPOp::Equal ? "=" : (node.op == LDAPOp::Approx ? "~=" : (node.op == LDAPOp::LessEq ? "<=" : ">="));
                AppendEscaped(node.value, out);
                break;
        }
        out += ')';
    }
} // namespace cppmicroservices
