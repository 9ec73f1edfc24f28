#ifndef TESTS_SUPPORT_THROWN_H
#define TESTS_SUPPORT_THROWN_H

#include <optional>
#include <string>

namespace testsupport
{
    // What body() throws as an E, or nothing when it returns; an exception
    // of another type propagates and fails the test.
    template <class E, class Body>
    std::optional<E>
    Thrown(Body&& body)
    {
        try
        {
            body();
        }
        catch (E const& e)
        {
            return e;
        }
        return std::nullopt;
    }

    // The what() of the E that body() throws, or "no exception".
    template <class E, class Body>
    std::string
    ThrownText(Body&& body)
    {
        try
        {
            body();
        }
        catch (E const& e)
        {
            return e.what();
        }
        return "no exception";
    }
} // namespace testsupport

#endif // TESTS_SUPPORT_THROWN_H
