// Components whose lives the lifecycle tests follow: an immediate one with
// three mandatory static references provided as two interfaces, a delayed one,
// a delayed one with a mandatory reference, and one of prototype scope.

#include "DSTestComponent.h"

namespace ds_test
{
    // Records the ids of its injected services and the "flavour" property it is activated with.
    class Triple
        : public ProbedService<test::IfaceA>
        , public test::IfaceB
    {
      public:
        Triple(std::shared_ptr<test::RefA> const& a, std::shared_ptr<test::RefB> const& b, std::shared_ptr<test::RefC> const& c)
            : ProbedService("Triple", IdOf(a) + "," + IdOf(b) + "," + IdOf(c))
        {
        }

        void
        Activate(std::shared_ptr<ComponentContext> const& context)
        {
            auto const properties = context->GetProperties();
            auto const flavour = properties.find("flavour");
            Record("activate", flavour == properties.end() ? std::string() : flavour->second.ToStringNoExcept());
        }

        std::string
        Flavour() const override
        {
            return "triple";
        }
    };

    // Records whether the context knows the component's own registration
    // and, wrongly for a singleton, a using bundle.
    class Lazy : public ProbedService<test::LazyService>
    {
      public:
        Lazy() : ProbedService("Lazy") {}

        void
        Activate(std::shared_ptr<ComponentContext> const& context)
        {
            std::string detail = context->GetServiceReference() ? "" : "unregistered";
            if (context->GetUsingBundle())
            {
                detail += "using " + context->GetUsingBundle().GetSymbolicName();
            }
            Record("activate", detail);
        }
    };

    // Created by the first GetService, replaced when its reference goes.
    class OnDemand : public ProbedService<test::OnDemand>
    {
      public:
        explicit OnDemand(std::shared_ptr<test::RefA> const& a) : ProbedService("OnDemand", IdOf(a)) {}
    };

    // Every ServiceObjects::GetService makes one; records the bundle it was made for.
    class Prototype : public ProbedService<test::Echo>
    {
      public:
        Prototype() : ProbedService("Prototype") {}

        void
        Activate(std::shared_ptr<ComponentContext> const& context)
        {
            auto const user = context->GetUsingBundle();
            Record("activate", user ? user.GetSymbolicName() : "nobody");
        }
    };
} // namespace ds_test

using namespace ds_test;

DS_TEST_COMPONENT(ds_test_Triple,
                  ComponentInstanceImpl<Triple, std::tuple<test::IfaceA, test::IfaceB>, std::shared_ptr<test::RefA>,
                                        std::shared_ptr<test::RefB>, std::shared_ptr<test::RefC>>({ "refA", "refB", "refC" }))
DS_TEST_COMPONENT(ds_test_Lazy, ComponentInstanceImpl<Lazy, std::tuple<test::LazyService>>())
DS_TEST_COMPONENT(ds_test_OnDemand,
                  ComponentInstanceImpl<OnDemand, std::tuple<test::OnDemand>, std::shared_ptr<test::RefA>>({ "refA" }))
DS_TEST_COMPONENT(ds_test_Prototype, ComponentInstanceImpl<Prototype, std::tuple<test::Echo>>())
