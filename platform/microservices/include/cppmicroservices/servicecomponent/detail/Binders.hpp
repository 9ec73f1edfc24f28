#ifndef CPPMICROSERVICES_SERVICECOMPONENT_DETAIL_BINDERS_HPP
#define CPPMICROSERVICES_SERVICECOMPONENT_DETAIL_BINDERS_HPP

#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/servicecomponent/ComponentContext.hpp"
#include "cppmicroservices/servicecomponent/ComponentException.hpp"

#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace cppmicroservices::service::component::detail
{
    /// Connects one reference of a component to the methods of its class
    /// that receive the reference's services.
    template <class T>
    class Binder
    {
      public:
        Binder(std::string const& refName, std::string const& refType) : refName(refName), refType(refType) {}
        virtual ~Binder() = default;

        /// Hands one service (pointing to the reference's interface type) to impl.
        virtual void Bind(std::shared_ptr<void> const& service, std::shared_ptr<T> const& impl) = 0;
        virtual void UnBind(std::shared_ptr<void> const& service, std::shared_ptr<T> const& impl) = 0;
        /// Hands every service bound to the reference in ctx to impl.
        virtual void Bind(std::shared_ptr<ComponentContext> const& ctx, std::shared_ptr<T> const& impl) = 0;
        virtual void Unbind(std::shared_ptr<ComponentContext> const& ctx, std::shared_ptr<T> const& impl) = 0;

        std::string
        GetReferenceName() const
        {
            return refName;
        }

        std::string
        GetReferenceType() const
        {
            return refType;
        }

      private:
        std::string const refName;
        std::string const refType;
    };

    /// A dynamic reference injected through Bind<name> / Unbind<name> methods
    /// of T taking std::shared_ptr<R> const&.
    template <class T, class R>
    class DynamicBinder final : public Binder<T>
    {
      public:
        using BindFuncT = std::function<void(T*, std::shared_ptr<R> const&)>;
        using UnbindFuncT = std::function<void(T*, std::shared_ptr<R> const&)>;

        DynamicBinder(std::string const& refName, BindFuncT bindFunc, UnbindFuncT unbindFunc)
            : Binder<T>(refName, us_service_interface_iid<R>())
            , bindFunc(std::move(bindFunc))
            , unbindFunc(std::move(unbindFunc))
        {
        }

        /// Throws ComponentException for a null service.
        void
        Bind(std::shared_ptr<void> const& service, std::shared_ptr<T> const& impl) override
        {
            bindFunc(impl.get(), Typed(service));
        }

        void
        UnBind(std::shared_ptr<void> const& service, std::shared_ptr<T> const& impl) override
        {
            unbindFunc(impl.get(), Typed(service));
        }

        void
        Bind(std::shared_ptr<ComponentContext> const& ctx, std::shared_ptr<T> const& impl) override
        {
            for (auto const& service : ctx->template LocateServices<R>(this->GetReferenceName()))
            {
                if (service)
                {
                    bindFunc(impl.get(), service);
                }
            }
        }

        void
        Unbind(std::shared_ptr<ComponentContext> const& ctx, std::shared_ptr<T> const& impl) override
        {
            auto services = ctx->template LocateServices<R>(this->GetReferenceName());
            for (auto it = services.rbegin(); it != services.rend(); ++it)
            {
                if (*it)
                {
                    unbindFunc(impl.get(), *it);
                }
            }
        }

      private:
        std::shared_ptr<R>
        Typed(std::shared_ptr<void> const& service) const
        {
            if (!service)
            {
                throw ComponentException("Cannot bind a null service to reference " + this->GetReferenceName());
            }
            return std::static_pointer_cast<R>(service);
        }

        BindFuncT const bindFunc;
        UnbindFuncT const unbindFunc;
    };

    /// A static reference: its services never change while the instance
    /// lives, so every binding call is a programming error.
    template <class T, class R>
    class StaticBinder final : public Binder<T>
    {
      public:
        explicit StaticBinder(std::string const& refName) : Binder<T>(refName, us_service_interface_iid<R>()) {}

        void
        Bind(std::shared_ptr<void> const&, std::shared_ptr<T> const&) override
        {
            Refuse();
        }

        void
        UnBind(std::shared_ptr<void> const&, std::shared_ptr<T> const&) override
        {
            Refuse();
        }

        void
        Bind(std::shared_ptr<ComponentContext> const&, std::shared_ptr<T> const&) override
        {
            Refuse();
        }

        void
        Unbind(std::shared_ptr<ComponentContext> const&, std::shared_ptr<T> const&) override
        {
            Refuse();
        }

      private:
        [[noreturn]] void
        Refuse() const
        {
            throw ComponentException("Static reference " + this->GetReferenceName() + " cannot be rebound");
        }
    };
} // namespace cppmicroservices::service::component::detail

#endif // CPPMICROSERVICES_SERVICECOMPONENT_DETAIL_BINDERS_HPP
