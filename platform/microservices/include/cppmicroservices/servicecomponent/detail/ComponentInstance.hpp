#ifndef CPPMICROSERVICES_SERVICECOMPONENT_DETAIL_COMPONENTINSTANCE_HPP
#define CPPMICROSERVICES_SERVICECOMPONENT_DETAIL_COMPONENTINSTANCE_HPP

#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/servicecomponent/ComponentContext.hpp"

#include <memory>
#include <string>

namespace cppmicroservices::service::component::detail
{
    /// The runtime's handle on one instance of a component's implementation
    /// class. A bundle's NewInstance_<name> entry point makes one (usually a
    /// ComponentInstanceImpl) and its DeleteInstance_<name> destroys it.
    ///
    /// The runtime calls the members of one object from one thread at a time,
    /// in this order: CreateInstance, BindReferences, Activate, then any
    /// number of InvokeBindMethod / InvokeUnbindMethod / Modified, then
    /// Deactivate and UnbindReferences. Each member lets exceptions of the
    /// user's class through; the runtime catches and logs them.
    class ComponentInstance
    {
      public:
        virtual ~ComponentInstance() = default;

        /// Constructs the user's object, with the references it injects
        /// through its constructor looked up in ctxt.
        virtual void CreateInstance(std::shared_ptr<ComponentContext> const& ctxt) = 0;
        /// Calls the Bind method of every dynamic reference the class injects,
        /// once per service bound in ctxt.
        virtual void BindReferences(std::shared_ptr<ComponentContext> const& ctxt) = 0;
        /// The mirror of BindReferences.
        virtual void UnbindReferences() = 0;
        /// Calls the class's Activate(ctxt), if it has one.
        virtual void Activate() = 0;
        /// Calls the class's Deactivate(ctxt), if it has one.
        virtual void Deactivate() = 0;
        /// Calls the class's Modified(ctxt, properties), if it has one.
        virtual void Modified() = 0;
        /// Calls Bind<refName>(service) when the class injects refName
        /// dynamically; does nothing otherwise. svcToBind points to the
        /// reference's interface type.
        virtual void InvokeBindMethod(std::string const& refName, std::shared_ptr<void> svcToBind) = 0;
        /// Calls Unbind<refName>(service); as InvokeBindMethod.
        virtual void InvokeUnbindMethod(std::string const& refName, std::shared_ptr<void> svcToUnbind) = 0;
        /// The object under each provided interface id; nullptr for a
        /// component that provides no service.
        virtual cppmicroservices::InterfaceMapPtr GetInterfaceMap() = 0;
        /// Whether the class has Modified with the exact signature.
        virtual bool DoesModifiedMethodExist() = 0;
    };
} // namespace cppmicroservices::service::component::detail

#endif // CPPMICROSERVICES_SERVICECOMPONENT_DETAIL_COMPONENTINSTANCE_HPP
