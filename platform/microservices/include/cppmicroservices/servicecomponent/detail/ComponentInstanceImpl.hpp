#ifndef CPPMICROSERVICES_SERVICECOMPONENT_DETAIL_COMPONENTINSTANCEIMPL_HPP
#define CPPMICROSERVICES_SERVICECOMPONENT_DETAIL_COMPONENTINSTANCEIMPL_HPP

#include "cppmicroservices/AnyMap.h"
#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/servicecomponent/ComponentContext.hpp"
#include "cppmicroservices/servicecomponent/detail/Binders.hpp"
#include "cppmicroservices/servicecomponent/detail/ComponentInstance.hpp"

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <tuple>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

namespace cppmicroservices::service::component::detail
{
    // Lifecycle methods are called only when the class has them with exactly
    // these signatures (inherited ones count); anything else is ignored.
    template <class T, class = void>
    struct HasActivate : std::false_type
    {
    };
    template <class T>
    struct HasActivate<T,
                       std::void_t<decltype(static_cast<void (T::*)(std::shared_ptr<ComponentContext> const&)>(
                           &T::Activate))>> : std::true_type
    {
    };

    template <class T, class = void>
    struct HasDeactivate : std::false_type
    {
    };
    template <class T>
    struct HasDeactivate<T,
                         std::void_t<decltype(static_cast<void (T::*)(std::shared_ptr<ComponentContext> const&)>(
                             &T::Deactivate))>> : std::true_type
    {
    };

    template <class T, class = void>
    struct HasModified : std::false_type
    {
    };
    template <class T>
    struct HasModified<T,
                       std::void_t<decltype(static_cast<void (T::*)(std::shared_ptr<ComponentContext> const&,
                                                                    std::shared_ptr<cppmicroservices::AnyMap> const&)>(
                           &T::Modified))>> : std::true_type
    {
    };

    // How a constructor-injected reference is looked up: std::shared_ptr<R>
    // is a unary reference, std::vector<std::shared_ptr<I>> gives every bound
    // service (a multiple reference). Anything else is refused at compile time,
    // as CppMicroServices' generated code never passes it.
    template <class R>
    struct InjectedReference;

    template <class R>
    struct InjectedReference<std::shared_ptr<R>>
    {
        using ArgType = std::shared_ptr<R>;

        static ArgType
        Locate(ComponentContext const& ctx, std::string const& refName)
        {
            return ctx.template LocateService<R>(refName);
        }
    };

    template <class I>
    struct InjectedReference<std::vector<std::shared_ptr<I>>>
    {
        using ArgType = std::vector<std::shared_ptr<I>>;

        static ArgType
        Locate(ComponentContext const& ctx, std::string const& refName)
        {
            return ctx.template LocateServices<I>(refName);
        }
    };

    template <class T>
    struct AlwaysFalse : std::false_type
    {
    };

    /// What every ComponentInstanceImpl does regardless of constructor injection.
    template <class T, class InterfaceTuple = std::tuple<>>
    class ComponentInstanceImplBase : public ComponentInstance
    {
      public:
        explicit ComponentInstanceImplBase(std::vector<std::shared_ptr<Binder<T>>> const& binders) : binders(binders)
        {
            for (auto const& binder : binders)
            {
                bindersByName.emplace(binder->GetReferenceName(), binder);
            }
        }

        void
        BindReferences(std::shared_ptr<ComponentContext> const& ctxt) override
        {
            for (auto const& binder : binders)
            {
                binder->Bind(ctxt, mServiceImpl);
            }
        }

        void
        UnbindReferences() override
        {
            for (auto it = binders.rbegin(); it != binders.rend(); ++it)
            {
                (*it)->Unbind(mContext, mServiceImpl);
            }
        }

        void
        Activate() override
        {
            if constexpr (HasActivate<T>::value)
            {
                mServiceImpl->Activate(mContext);
            }
        }

        void
        Deactivate() override
        {
            if constexpr (HasDeactivate<T>::value)
            {
                mServiceImpl->Deactivate(mContext);
            }
        }

        void
        Modified() override
        {
            if constexpr (HasModified<T>::value)
            {
                auto properties = std::make_shared<cppmicroservices::AnyMap>(mContext->GetProperties());
                mServiceImpl->Modified(mContext, properties);
            }
        }

        void
        InvokeBindMethod(std::string const& refName, std::shared_ptr<void> svcToBind) override
        {
            auto const found = bindersByName.find(refName);
            if (found != bindersByName.end())
            {
                found->second->Bind(svcToBind, mServiceImpl);
            }
        }

        void
        InvokeUnbindMethod(std::string const& refName, std::shared_ptr<void> svcToUnbind) override
        {
            auto const found = bindersByName.find(refName);
            if (found != bindersByName.end())
            {
                found->second->UnBind(svcToUnbind, mServiceImpl);
            }
        }

        cppmicroservices::InterfaceMapPtr
        GetInterfaceMap() override
        {
            return MakeMap(static_cast<InterfaceTuple*>(nullptr));
        }

        bool
        DoesModifiedMethodExist() override
        {
            return HasModified<T>::value;
        }

        virtual std::shared_ptr<T>
        GetInstance() const
        {
            return mServiceImpl;
        }

      protected:
        std::shared_ptr<ComponentContext> mContext;
        std::shared_ptr<T> mServiceImpl;

      private:
        template <class... Interfaces>
        cppmicroservices::InterfaceMapPtr
        MakeMap(std::tuple<Interfaces...>*) const
        {
            if constexpr (sizeof...(Interfaces) == 0)
            {
                return nullptr;
            }
            else
            {
                return cppmicroservices::InterfaceMapPtr(cppmicroservices::MakeInterfaceMap<Interfaces...>(mServiceImpl));
            }
        }

        std::vector<std::shared_ptr<Binder<T>>> binders;
        std::unordered_map<std::string, std::shared_ptr<Binder<T>>> bindersByName;
    };

    /// The instance handle the generated NewInstance_ entry points make. T is
    /// the implementation class, InterfaceTuple the provided interfaces, and
    /// CtorInjectedRefs the types of the references T's constructor takes, in
    /// the order of staticRefNames: std::shared_ptr<I> for a unary reference,
    /// std::vector<std::shared_ptr<I>> for a multiple one.
    ///
    /// T is constructed with (std::shared_ptr<AnyMap> const& properties,
    /// refs...) when it has that constructor, else with (refs...).
    template <class T, class InterfaceTuple = std::tuple<>, class... CtorInjectedRefs>
    class ComponentInstanceImpl final : public ComponentInstanceImplBase<T, InterfaceTuple>
    {
      public:
        ComponentInstanceImpl(std::array<std::string, sizeof...(CtorInjectedRefs)> const staticRefNames = {},
                              std::vector<std::shared_ptr<Binder<T>>> const& binders = {})
            : ComponentInstanceImplBase<T, InterfaceTuple>(binders)
            , staticRefNames(staticRefNames)
        {
        }

        void
        CreateInstance(std::shared_ptr<ComponentContext> const& ctxt) override
        {
            this->mContext = ctxt;
            this->mServiceImpl = Construct(*ctxt, std::index_sequence_for<CtorInjectedRefs...>{});
        }

      private:
        template <std::size_t... Index>
        std::shared_ptr<T>
        Construct(ComponentContext const& ctxt, std::index_sequence<Index...>)
        {
            using WithProperties = std::is_constructible<T,
                                                         std::shared_ptr<cppmicroservices::AnyMap> const&,
                                                         typename InjectedReference<CtorInjectedRefs>::ArgType const&...>;
            using WithoutProperties
                = std::is_constructible<T, typename InjectedReference<CtorInjectedRefs>::ArgType const&...>;
            // Every reference is looked up before the constructor runs, so a
            // mandatory one that is gone fails the construction instead of
            // handing the constructor a null pointer.
            std::tuple<typename InjectedReference<CtorInjectedRefs>::ArgType...> const refs{
                InjectedReference<CtorInjectedRefs>::Locate(ctxt, staticRefNames[Index])...
            };
            (void)refs;
            if constexpr (WithProperties::value)
            {
                auto const properties = std::make_shared<cppmicroservices::AnyMap>(ctxt.GetProperties());
                return std::make_shared<T>(properties, std::get<Index>(refs)...);
            }
            else if constexpr (WithoutProperties::value)
            {
                return std::make_shared<T>(std::get<Index>(refs)...);
            }
            else
            {
                static_assert(AlwaysFalse<T>::value,
                              "The component class needs a public constructor taking the injected references, "
                              "optionally preceded by std::shared_ptr<cppmicroservices::AnyMap> const&");
                return nullptr;
            }
        }

        std::array<std::string, sizeof...(CtorInjectedRefs)> const staticRefNames;
    };
} // namespace cppmicroservices::service::component::detail

#endif // CPPMICROSERVICES_SERVICECOMPONENT_DETAIL_COMPONENTINSTANCEIMPL_HPP
