#include "cppmicroservices/Any.h"

#include <cxxabi.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace cppmicroservices
{
    Any::Any() = default;

    Any::Any(Any const& other) : _content(other._content ? other._content->Clone() : nullptr) {}

    Any::Any(Any&& other) noexcept = default;

    Any::~Any() = default;

    Any&
    Any::Swap(Any& rhs) noexcept
    {
        std::swap(_content, rhs._content);
        return *this;
    }

    bool
    Any::operator==(Any const& rhs) const
    {
        if (!_content || !rhs._content)
        {
            return !_content && !rhs._content;
        }
        if (_content->Type() != rhs._content->Type())
        {
            return false;
        }
        return _content->Equals(*rhs._content);
    }

    bool
    Any::operator!=(Any const& rhs) const
    {
        return !(*this == rhs);
    }

    Any&
    Any::operator=(Any const& rhs)
    {
        Any(rhs).Swap(*this);
        return *this;
    }

    Any& Any::operator=(Any&& rhs) noexcept = default;

    bool
    Any::Empty() const noexcept
    {
        return !_content;
    }

    std::string
    Any::ToString() const
    {
        if (!_content)
        {
            throw std::logic_error("empty any");
        }
        std::ostringstream os;
        _content->WriteString(os);
        return os.str();
    }

    std::string
    Any::ToStringNoExcept() const
    {
        if (!_content)
        {
            return std::string();
        }
        std::ostringstream os;
        _content->WriteString(os);
        return os.str();
    }

    std::string
    Any::ToJSON(uint8_t const increment, int32_t const indent) const
    {
        std::ostringstream os;
        any_value_to_json(os, *this, increment, indent);
        return os.str();
    }

    std::string
    Any::ToJSON(bool prettyPrint) const
    {
        return prettyPrint ? ToJSON(4, 4) : ToJSON(0, 0);
    }

    std::type_info const&
    Any::Type() const noexcept
    {
        return _content ? _content->Type() : typeid(void);
    }

    std::ostream&
    any_value_to_string(std::ostream& os, Any const& val)
    {
        if (val._content)
        {
            val._content->WriteString(os);
        }
        return os;
    }

    std::ostream&
    any_value_to_json(std::ostream& os, Any const& val, uint8_t const increment, int32_t const indent)
    {
        if (!val._content)
        {
            return os << "null";
        }
        val._content->WriteJSON(os, increment, indent);
        return os;
    }

    std::ostream&
    newline_and_indent(std::ostream& os, uint8_t const increment, int32_t const indent)
    {
        if (increment > 0)
        {
            os << '\n';
            for (int32_t i = 0; i < indent; ++i)
            {
                os << ' ';
            }
        }
        return os;
    }

    namespace detail
    {
        std::string
        AnyDemangledTypeName(std::type_info const& type)
        {
            int status = 0;
            std::unique_ptr<char, void (*)(void*)> name(abi::__cxa_demangle(type.name(), nullptr, nullptr, &status),
                                                        std::free);
            if (status == 0 && name)
            {
                return name.get();
            }
            return type.name();
        }

        void
        AnyThrowBadCast(char const* funcName, std::type_info const& source, std::type_info const& target)
        {
            throw BadAnyCastException(std::string("cppmicroservices::BadAnyCastException: ") + funcName
                                      + ": Failed to convert from cppmicroservices::Any type "
                                      + AnyDemangledTypeName(source) + " to target type "
                                      + AnyDemangledTypeName(target));
        }

        void
        AnyWriteJsonString(std::ostream& os, std::string const& value)
        {
            os << '"';
            for (char c : value)
            {
                switch (c)
                {
                    case '"':
                        os << "\\\"";
                        break;
                    case '\\':
                        os << "\\\\";
                        break;
                    case '\b':
                        os << "\\b";
                        break;
                    case '\f':
                        os << "\\f";
                        break;
                    case '\n':
                        os << "\\n";
                        break;
                    case '\r':
                        os << "\\r";
                        break;
                    case '\t':
                        os << "\\t";
                        break;
                    default:
                        if (static_cast<unsigned char>(c) < 0x20)
                        {
                            char buf[8];
                            std::snprintf(buf, sizeof buf, "\\u%04x", static_cast<unsigned>(c));
                            os << buf;
                        }
                        else
                        {
                            os << c;
                        }
                }
            }
            os << '"';
        }
    } // namespace detail
} // namespace cppmicroservices
