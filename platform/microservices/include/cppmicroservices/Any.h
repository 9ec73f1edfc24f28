// A type-erased value holder, the casts that read it back, and the text and JSON printers
// used for property values.
//
// Thread safety: an Any is a plain value. Concurrent const access to one Any is safe;
// mutation needs the same external synchronisation as any other object.
#ifndef CPPMICROSERVICES_ANY_H
#define CPPMICROSERVICES_ANY_H

#include "cppmicroservices/GlobalConfig.h"
#include "cppmicroservices/detail/AnyTraits.h"

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <unordered_map>
#include <utility>
#include <vector>

namespace cppmicroservices
{
    class Any;
    class any_map;
    class AnyMap;

    // Significant digits used when floating-point values are printed as text or JSON.
    constexpr int DOUBLE_PRECISION = 12;

    // Writes a newline and `indent` spaces when pretty printing (increment > 0); otherwise
    // writes nothing.
    US_Framework_EXPORT std::ostream& newline_and_indent(std::ostream& os, uint8_t const increment, int32_t const indent);

    // ---- Text printers: `os << val`, containers as [a,b], maps as {k : v, k2 : v2}. ----
    // Floating point uses DOUBLE_PRECISION significant digits, bool prints true/false.
    // A type without operator<< prints its type name. They throw only what the stream throws.
    template <typename T>
    std::ostream& any_value_to_string(std::ostream& os, T const& val);
    template <typename E, typename A>
    std::ostream& any_value_to_string(std::ostream& os, std::vector<E, A> const& val);
    template <typename E, typename A>
    std::ostream& any_value_to_string(std::ostream& os, std::list<E, A> const& val);
    template <typename E, typename C, typename A>
    std::ostream& any_value_to_string(std::ostream& os, std::set<E, C, A> const& val);
    template <typename K, typename V, typename C, typename A>
    std::ostream& any_value_to_string(std::ostream& os, std::map<K, V, C, A> const& val);
    template <typename K, typename V, typename H, typename P, typename A>
    std::ostream& any_value_to_string(std::ostream& os, std::unordered_map<K, V, H, P, A> const& val);
    template <typename R, typename... Args>
    std::ostream& any_value_to_string(std::ostream& os, std::function<R(Args...)> const& val);
    US_Framework_EXPORT std::ostream& any_value_to_string(std::ostream& os, Any const& val);
    US_Framework_EXPORT std::ostream& any_value_to_string(std::ostream& os, any_map const& val);
    US_Framework_EXPORT std::ostream& any_value_to_string(std::ostream& os, AnyMap const& val);

    // ---- JSON printers. ----
    // std::string is quoted and escaped; bool prints true/false; anything else streams with
    // operator<< unquoted (floating point with DOUBLE_PRECISION digits); a type without
    // operator<< prints null. Sequences print as [a,b]; maps as {"k" : v, "k2" : v} with keys
    // quoted but not escaped. With increment > 0 every element starts on a new line indented
    // by `indent` spaces and the closing bracket is indented by `indent - increment`.
    // std::function prints nothing. Custom types may overload or specialise these.
    template <typename T>
    std::ostream& any_value_to_json(std::ostream& os, T const& val, uint8_t const increment = 0,
                                    int32_t const indent = 0);
    template <typename E, typename A>
    std::ostream& any_value_to_json(std::ostream& os, std::vector<E, A> const& val, uint8_t const increment = 0,
                                    int32_t const indent = 0);
    template <typename E, typename A>
    std::ostream& any_value_to_json(std::ostream& os, std::list<E, A> const& val, uint8_t const increment = 0,
                                    int32_t const indent = 0);
    template <typename E, typename C, typename A>
    std::ostream& any_value_to_json(std::ostream& os, std::set<E, C, A> const& val, uint8_t const increment = 0,
                                    int32_t const indent = 0);
    template <typename K, typename V, typename C, typename A>
    std::ostream& any_value_to_json(std::ostream& os, std::map<K, V, C, A> const& val, uint8_t const increment = 0,
                                    int32_t const indent = 0);
    template <typename K, typename V, typename H, typename P, typename A>
    std::ostream& any_value_to_json(std::ostream& os, std::unordered_map<K, V, H, P, A> const& val,
                                    uint8_t const increment = 0, int32_t const indent = 0);
    template <typename R, typename... Args>
    std::ostream& any_value_to_json(std::ostream& os, std::function<R(Args...)> const& val,
                                    uint8_t const increment = 0, int32_t const indent = 0);
    US_Framework_EXPORT std::ostream& any_value_to_json(std::ostream& os, Any const& val, uint8_t const increment = 0,
                                    int32_t const indent = 0);
    US_Framework_EXPORT std::ostream& any_value_to_json(std::ostream& os, any_map const& val, uint8_t const increment = 0,
                                    int32_t const indent = 0);
    US_Framework_EXPORT std::ostream& any_value_to_json(std::ostream& os, AnyMap const& val, uint8_t const increment = 0,
                                    int32_t const indent = 0);

    // Holds one value of any copyable type, or nothing. Retrieval is by exact type only
    // (any_cast<long> of a stored int fails). Store text as std::string, not as a literal.
    class US_Framework_EXPORT Any
    {
      public:
        // An empty Any: Empty() is true and Type() is typeid(void).
        Any();

        // Copies `value` in. Throws what copying the value throws (and std::bad_alloc).
        template <typename ValueType>
        Any(ValueType const& value) : _content(MakeHolder<ValueType>(value))
        {
        }

        // Moves `value` in and stores std::decay_t<ValueType>.
        template <typename ValueType,
                  typename = std::enable_if_t<!std::is_same_v<Any, std::decay_t<ValueType>>
                                              && !std::is_reference_v<ValueType>>>
        Any(ValueType&& value) : _content(MakeHolder<std::decay_t<ValueType>>(std::move(value)))
        {
        }

        // Deep copy of the held value.
        Any(Any const& other);
        Any(Any&& other) noexcept;
        ~Any();

        Any& Swap(Any& rhs) noexcept;

        // False when the held type is not exactly ValueType, or ValueType has no operator==.
        template <typename ValueType>
        bool operator==(ValueType const& val) const;

        // Two empty Anys are equal; empty and non-empty are not; values of different types
        // are not; values of a type without operator== are not.
        bool operator==(Any const& rhs) const;

        template <typename ValueType>
        bool
        operator!=(ValueType const& val) const
        {
            return !operator==(val);
        }
        bool operator!=(Any const& rhs) const;

        template <typename ValueType>
        Any&
        operator=(ValueType const& rhs)
        {
            Any(rhs).Swap(*this);
            return *this;
        }

        template <typename ValueType,
                  typename = std::enable_if_t<!std::is_same_v<Any, std::decay_t<ValueType>>
                                              && !std::is_reference_v<ValueType>>>
        Any&
        operator=(ValueType&& rhs)
        {
            Any(std::move(rhs)).Swap(*this);
            return *this;
        }

        Any& operator=(Any const& rhs);
        Any& operator=(Any&& rhs) noexcept;

        bool Empty() const noexcept;

        // The value as text (see any_value_to_string). Throws std::logic_error("empty any")
        // when empty.
        std::string ToString() const;

        // As ToString, but "" when empty; never throws except std::bad_alloc.
        std::string ToStringNoExcept() const;

        // The value as JSON (see any_value_to_json); "null" when empty.
        std::string ToJSON(uint8_t const increment, int32_t const indent) const;

        // One line, or pretty printed with an indent step of 4.
        std::string ToJSON(bool prettyPrint = false) const;

        // The held type, or typeid(void) when empty.
        std::type_info const& Type() const noexcept;

      private:
        class Placeholder
        {
          public:
            virtual ~Placeholder() = default;
            virtual std::type_info const& Type() const noexcept = 0;
            virtual std::unique_ptr<Placeholder> Clone() const = 0;
            // `other` holds the same type as this.
            virtual bool Equals(Placeholder const& other) const = 0;
            virtual void WriteString(std::ostream& os) const = 0;
            virtual void WriteJSON(std::ostream& os, uint8_t increment, int32_t indent) const = 0;
        };

        template <typename ValueType>
        class Holder final : public Placeholder
        {
          public:
            template <typename Arg>
            explicit Holder(Arg&& value) : _held(std::forward<Arg>(value))
            {
            }

            std::type_info const&
            Type() const noexcept override
            {
                return typeid(ValueType);
            }

            std::unique_ptr<Placeholder>
            Clone() const override
            {
                return std::make_unique<Holder>(_held);
            }

            bool
            Equals(Placeholder const& other) const override
            {
                if constexpr (detail::AnyHasOpEq<ValueType>::value)
                {
                    return static_cast<bool>(_held == static_cast<Holder const&>(other)._held);
                }
                else
                {
                    static_cast<void>(other);
                    return false;
                }
            }

            void
            WriteString(std::ostream& os) const override
            {
                any_value_to_string(os, _held);
            }

            void
            WriteJSON(std::ostream& os, uint8_t increment, int32_t indent) const override
            {
                any_value_to_json(os, _held, increment, indent);
            }

            ValueType _held;
        };

        template <typename ValueType, typename Arg>
        static std::unique_ptr<Placeholder>
        MakeHolder(Arg&& value)
        {
            static_assert(!std::is_array_v<ValueType>,
                          "Any cannot hold an array; store a string literal as std::string");
            static_assert(std::is_copy_constructible_v<ValueType>, "Any holds copyable types only");
            return std::make_unique<Holder<ValueType>>(std::forward<Arg>(value));
        }

        template <typename ValueType>
        friend ValueType* any_cast(Any* operand);
        template <typename ValueType>
        friend ValueType const* any_cast(Any const* operand);
        template <typename ValueType>
        friend ValueType* unsafe_any_cast(Any* operand);
        template <typename ValueType>
        friend ValueType const* unsafe_any_cast(Any const* operand);
        friend std::ostream& any_value_to_string(std::ostream& os, Any const& val);
        friend std::ostream& any_value_to_json(std::ostream& os, Any const& val, uint8_t const increment,
                                               int32_t const indent);

        std::unique_ptr<Placeholder> _content;
    };

    // Streams ToString(), or nothing for an empty Any. A template so that it only ever binds
    // to an Any itself: a plain `Any const&` overload would make every type look streamable
    // through Any's converting constructor.
    template <typename T, typename = std::enable_if_t<std::is_same_v<T, Any>>>
    std::ostream&
    operator<<(std::ostream& os, T const& any)
    {
        return any_value_to_string(os, any);
    }

    // Thrown by the value and reference casts when the held type is not the requested one.
    class US_Framework_EXPORT BadAnyCastException : public std::bad_cast
    {
      public:
        // An empty message makes what() return the generic text
        // "cppmicroservices::BadAnyCastException: failed conversion using cppmicroservices::any_cast".
        BadAnyCastException(std::string msg = "");
        ~BadAnyCastException() override;

        char const* what() const noexcept override;

      private:
        std::string _msg;
    };

    // Pointer to the held value, or nullptr when `operand` is null or holds another type.
    // Never throws.
    template <typename ValueType>
    ValueType*
    any_cast(Any* operand)
    {
        if (operand == nullptr || operand->Type() != typeid(ValueType))
        {
            return nullptr;
        }
        return &static_cast<Any::Holder<std::remove_cv_t<ValueType>>*>(operand->_content.get())->_held;
    }

    template <typename ValueType>
    ValueType const*
    any_cast(Any const* operand)
    {
        if (operand == nullptr || operand->Type() != typeid(ValueType))
        {
            return nullptr;
        }
        return &static_cast<Any::Holder<std::remove_cv_t<ValueType>> const*>(operand->_content.get())->_held;
    }

    // A copy of the held value. Throws BadAnyCastException on a type mismatch.
    // Use ref_any_cast, not any_cast<T&>, to get a reference.
    template <typename ValueType>
    ValueType
    any_cast(Any const& operand)
    {
        using Plain = std::remove_cv_t<std::remove_reference_t<ValueType>>;
        Plain const* result = any_cast<Plain>(&operand);
        if (result == nullptr)
        {
            detail::AnyThrowBadCast("any_cast", operand.Type(), typeid(Plain));
        }
        return *result;
    }

    template <typename ValueType>
    ValueType
    any_cast(Any& operand)
    {
        using Plain = std::remove_cv_t<std::remove_reference_t<ValueType>>;
        Plain* result = any_cast<Plain>(&operand);
        if (result == nullptr)
        {
            detail::AnyThrowBadCast("any_cast", operand.Type(), typeid(Plain));
        }
        return *result;
    }

    // A reference to the held value, valid while the Any holds it. Throws
    // BadAnyCastException on a type mismatch.
    template <typename ValueType>
    ValueType const&
    ref_any_cast(Any const& operand)
    {
        ValueType const* result = any_cast<ValueType>(&operand);
        if (result == nullptr)
        {
            detail::AnyThrowBadCast("ref_any_cast", operand.Type(), typeid(ValueType));
        }
        return *result;
    }

    template <typename ValueType>
    ValueType&
    ref_any_cast(Any& operand)
    {
        ValueType* result = any_cast<ValueType>(&operand);
        if (result == nullptr)
        {
            detail::AnyThrowBadCast("ref_any_cast", operand.Type(), typeid(ValueType));
        }
        return *result;
    }

    // Internal: no type check. The caller guarantees that `operand` holds a ValueType.
    template <typename ValueType>
    ValueType*
    unsafe_any_cast(Any* operand)
    {
        return &static_cast<Any::Holder<ValueType>*>(operand->_content.get())->_held;
    }

    template <typename ValueType>
    ValueType const*
    unsafe_any_cast(Any const* operand)
    {
        return &static_cast<Any::Holder<ValueType> const*>(operand->_content.get())->_held;
    }

    // ---- Printer definitions. ----
    namespace detail
    {
        template <typename Iter>
        std::ostream&
        AnySequenceToString(std::ostream& os, Iter first, Iter last)
        {
            os << '[';
            for (Iter it = first; it != last; ++it)
            {
                if (it != first)
                {
                    os << ',';
                }
                any_value_to_string(os, *it);
            }
            return os << ']';
        }

        template <typename Iter>
        std::ostream&
        AnyMapToString(std::ostream& os, Iter first, Iter last)
        {
            os << '{';
            for (Iter it = first; it != last; ++it)
            {
                if (it != first)
                {
                    os << ", ";
                }
                any_value_to_string(os, it->first);
                os << " : ";
                any_value_to_string(os, it->second);
            }
            return os << '}';
        }

        template <typename Iter>
        std::ostream&
        AnySequenceToJson(std::ostream& os, Iter first, Iter last, uint8_t increment, int32_t indent)
        {
            if (first == last)
            {
                return os << "[]";
            }
            os << '[';
            for (Iter it = first; it != last; ++it)
            {
                if (it != first)
                {
                    os << ',';
                }
                newline_and_indent(os, increment, indent);
                any_value_to_json(os, *it, increment, indent + increment);
            }
            newline_and_indent(os, increment, indent - increment);
            return os << ']';
        }

        template <typename Iter>
        std::ostream&
        AnyMapToJson(std::ostream& os, Iter first, Iter last, uint8_t increment, int32_t indent)
        {
            if (first == last)
            {
                return os << "{}";
            }
            os << '{';
            for (Iter it = first; it != last; ++it)
            {
                if (it != first)
                {
                    os << (increment > 0 ? "," : ", ");
                }
                newline_and_indent(os, increment, indent);
                os << '"' << it->first << "\" : ";
                any_value_to_json(os, it->second, increment, indent + increment);
            }
            newline_and_indent(os, increment, indent - increment);
            return os << '}';
        }
    } // namespace detail

    template <typename T>
    std::ostream&
    any_value_to_string(std::ostream& os, T const& val)
    {
        if constexpr (std::is_same_v<T, bool>)
        {
            os << (val ? "true" : "false");
        }
        else if constexpr (std::is_floating_point_v<T>)
        {
            detail::AnyPrecisionGuard guard(os, DOUBLE_PRECISION);
            os << val;
        }
        else if constexpr (detail::AnyIsStreamable<T>::value)
        {
            os << val;
        }
        else
        {
            os << detail::AnyDemangledTypeName(typeid(T));
        }
        return os;
    }

    template <typename E, typename A>
    std::ostream&
    any_value_to_string(std::ostream& os, std::vector<E, A> const& val)
    {
        return detail::AnySequenceToString(os, val.begin(), val.end());
    }

    template <typename E, typename A>
    std::ostream&
    any_value_to_string(std::ostream& os, std::list<E, A> const& val)
    {
        return detail::AnySequenceToString(os, val.begin(), val.end());
    }

    template <typename E, typename C, typename A>
    std::ostream&
    any_value_to_string(std::ostream& os, std::set<E, C, A> const& val)
    {
        return detail::AnySequenceToString(os, val.begin(), val.end());
    }

    template <typename K, typename V, typename C, typename A>
    std::ostream&
    any_value_to_string(std::ostream& os, std::map<K, V, C, A> const& val)
    {
        return detail::AnyMapToString(os, val.begin(), val.end());
    }

    template <typename K, typename V, typename H, typename P, typename A>
    std::ostream&
    any_value_to_string(std::ostream& os, std::unordered_map<K, V, H, P, A> const& val)
    {
        return detail::AnyMapToString(os, val.begin(), val.end());
    }

    template <typename R, typename... Args>
    std::ostream&
    any_value_to_string(std::ostream& os, std::function<R(Args...)> const&)
    {
        return os;
    }

    template <typename T>
    std::ostream&
    any_value_to_json(std::ostream& os, T const& val, uint8_t const, int32_t const)
    {
        if constexpr (std::is_same_v<T, std::string>)
        {
            detail::AnyWriteJsonString(os, val);
        }
        else if constexpr (std::is_same_v<T, bool>)
        {
            os << (val ? "true" : "false");
        }
        else if constexpr (std::is_floating_point_v<T>)
        {
            detail::AnyPrecisionGuard guard(os, DOUBLE_PRECISION);
            os << val;
        }
        else if constexpr (detail::AnyIsStreamable<T>::value)
        {
            os << val;
        }
        else
        {
            os << "null";
        }
        return os;
    }

    template <typename E, typename A>
    std::ostream&
    any_value_to_json(std::ostream& os, std::vector<E, A> const& val, uint8_t const increment, int32_t const indent)
    {
        return detail::AnySequenceToJson(os, val.begin(), val.end(), increment, indent);
    }

    template <typename E, typename A>
    std::ostream&
    any_value_to_json(std::ostream& os, std::list<E, A> const& val, uint8_t const increment, int32_t const indent)
    {
        return detail::AnySequenceToJson(os, val.begin(), val.end(), increment, indent);
    }

    template <typename E, typename C, typename A>
    std::ostream&
    any_value_to_json(std::ostream& os, std::set<E, C, A> const& val, uint8_t const increment, int32_t const indent)
    {
        return detail::AnySequenceToJson(os, val.begin(), val.end(), increment, indent);
    }

    template <typename K, typename V, typename C, typename A>
    std::ostream&
    any_value_to_json(std::ostream& os, std::map<K, V, C, A> const& val, uint8_t const increment, int32_t const indent)
    {
        return detail::AnyMapToJson(os, val.begin(), val.end(), increment, indent);
    }

    template <typename K, typename V, typename H, typename P, typename A>
    std::ostream&
    any_value_to_json(std::ostream& os, std::unordered_map<K, V, H, P, A> const& val, uint8_t const increment,
                      int32_t const indent)
    {
        return detail::AnyMapToJson(os, val.begin(), val.end(), increment, indent);
    }

    template <typename R, typename... Args>
    std::ostream&
    any_value_to_json(std::ostream& os, std::function<R(Args...)> const&, uint8_t const, int32_t const)
    {
        return os;
    }

    template <typename ValueType>
    bool
    Any::operator==(ValueType const& val) const
    {
        if constexpr (std::is_array_v<ValueType> || !detail::AnyHasOpEq<ValueType>::value)
        {
            static_cast<void>(val);
            return false;
        }
        else
        {
            if (Type() != typeid(ValueType))
            {
                return false;
            }
            return static_cast<bool>(*unsafe_any_cast<ValueType>(this) == val);
        }
    }
} // namespace cppmicroservices

#endif
