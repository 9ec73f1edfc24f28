#ifndef CPPMICROSERVICES_LISTENERTOKEN_H
#define CPPMICROSERVICES_LISTENERTOKEN_H

#include "cppmicroservices/GlobalConfig.h"

#include <cstdint>

namespace cppmicroservices
{
    class BundleContext;
    namespace detail
    {
        struct PrivateAccess;
    }

    using ListenerTokenId = std::uint64_t;

    // Names one listener added through a BundleContext, so that it can be
    // removed again with BundleContext::RemoveListener. Move-only: each
    // listener has exactly one token. A default-constructed or moved-from
    // token is invalid. Destroying a token does not remove its listener.
    class US_Framework_EXPORT ListenerToken
    {
      public:
        ListenerToken() noexcept : tokenId(0) {}
        // Not defaulted, so that an unused `auto token = Add...Listener(...)`
        // does not draw a set-but-unused warning.
        ~ListenerToken() noexcept {}

        ListenerToken(ListenerToken const&) = delete;
        ListenerToken& operator=(ListenerToken const&) = delete;

        ListenerToken(ListenerToken&& other) noexcept : tokenId(other.tokenId) { other.tokenId = 0; }
        ListenerToken&
        operator=(ListenerToken&& other) noexcept
        {
            if (this != &other)
            {
                tokenId = other.tokenId;
                other.tokenId = 0;
            }
            return *this;
        }

        explicit operator bool() const noexcept { return tokenId != 0; }

      private:
        friend class BundleContext;
        friend struct detail::PrivateAccess;

        explicit ListenerToken(ListenerTokenId id) noexcept : tokenId(id) {}
        ListenerTokenId
        Id() const noexcept
        {
            return tokenId;
        }

        ListenerTokenId tokenId;
    };
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_LISTENERTOKEN_H
