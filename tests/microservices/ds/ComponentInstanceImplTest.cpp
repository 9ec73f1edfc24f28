// The header-only glue that component bundles compile: constructor choice and
// injection, detection of the lifecycle methods by exact signature, binders.

#include "cppmicroservices/servicecomponent/detail/ComponentInstanceImpl.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace
{
    using cppmicroservices::Any;
    using cppmicroservices::AnyMap;
    using cppmicroservices::service::component::ComponentContext;
    using cppmicroservices::service::component::ComponentException;
    using cppmicroservices::service::component::detail::Binder;
    using cppmicroservices::service::component::detail::ComponentInstanceImpl;
    using cppmicroservices::service::component::detail::DynamicBinder;

    struct Dep
    {
        explicit Dep(int id) : id(id) {}
        virtual ~Dep() = default;
        int id;
    };

    struct Api
    {
        virtual ~Api() = default;
    };

    // A context whose bound services a test sets by reference name.
    class FakeContext : public ComponentContext
    {
      public:
        std::map<std::string, std::vector<std::shared_ptr<Dep>>> bound;
        std::unordered_map<std::string, Any> properties;

        std::unordered_map<std::string, Any>
        GetProperties() const override
        {
            return properties;
        }
        cppmicroservices::BundleContext
        GetBundleContext() const override
        {
            return {};
        }
        cppmicroservices::Bundle
        GetUsingBundle() const override
        {
            return {};
        }
        void
        EnableComponent(std::string const&) override
        {
        }
        void
        DisableComponent(std::string const&) override
        {
        }
        cppmicroservices::ServiceReferenceBase
        GetServiceReference() const override
        {
            return cppmicroservices::ServiceReferenceU();
        }

      protected:
        std::shared_ptr<void>
        LocateService(std::string const& name, std::string const&) const override
        {
            auto const found = bound.find(name);
            if (found == bound.end())
            {
                throw ComponentException("unknown " + name);
            }
            return found->second.empty() ? nullptr : found->second.front();
        }
        std::shared_ptr<void>
        LocateService(std::string const& name, cppmicroservices::ServiceReferenceBase const&) const override
        {
            return LocateService(name, std::string());
        }
        std::vector<std::shared_ptr<void>>
        LocateServices(std::string const& name, std::string const&) const override
        {
            std::vector<std::shared_ptr<void>> services;
            auto const found = bound.find(name);
            if (found != bound.end())
            {
                services.assign(found->second.begin(), found->second.end());
            }
            return services;
        }
    };

    std::vector<std::string> calls;

    struct Injected : Api
    {
        Injected(std::shared_ptr<Dep> const& one, std::vector<std::shared_ptr<Dep>> const& many)
        {
            calls.push_back("ctor " + std::to_string(one->id) + " " + std::to_string(many.size()));
        }
    };

    struct WithProperties
    {
        WithProperties() { calls.push_back("default ctor"); }
        explicit WithProperties(std::shared_ptr<AnyMap> const& properties)
        {
            calls.push_back("properties ctor " + properties->at("k").ToString());
        }
        void
        Modified(std::shared_ptr<ComponentContext> const&, std::shared_ptr<AnyMap> const& properties)
        {
            calls.push_back("modified " + properties->at("k").ToString());
        }
    };

    // Lifecycle methods with other signatures are not lifecycle methods.
    struct Lookalike
    {
        void
        Activate()
        {
            calls.push_back("activate()");
        }
        void
        Deactivate(std::shared_ptr<ComponentContext> const&) const
        {
            calls.push_back("deactivate const");
        }
        void
        Modified(std::shared_ptr<ComponentContext> const&)
        {
            calls.push_back("modified(ctx)");
        }
    };

    struct Dynamic
    {
        void
        BindDep(std::shared_ptr<Dep> const& dep)
        {
            calls.push_back("bind " + std::to_string(dep->id));
        }
        void
        UnbindDep(std::shared_ptr<Dep> const& dep)
        {
            calls.push_back("unbind " + std::to_string(dep->id));
        }
    };

    class ComponentInstanceImplTest : public ::testing::Test
    {
      protected:
        void
        SetUp() override
        {
            calls.clear();
            context->bound["one"] = { std::make_shared<Dep>(7) };
            context->bound["many"] = { std::make_shared<Dep>(1), std::make_shared<Dep>(2) };
            context->properties["k"] = std::string("v");
        }

        std::shared_ptr<FakeContext> context = std::make_shared<FakeContext>();
    };

    // The lifecycle methods and provided interfaces of components are used
    // through the real runtime by the test bundles; here only what no
    // bundle reaches.
    TEST_F(ComponentInstanceImplTest, InjectsUnaryAndMultipleReferencesByNameAndFailsRatherThanInjectNull)
    {
        using Impl = ComponentInstanceImpl<Injected, std::tuple<Api>, std::shared_ptr<Dep>, std::vector<std::shared_ptr<Dep>>>;
        Impl instance({ "one", "many" });
        instance.CreateInstance(context);
        EXPECT_THAT(calls, ::testing::ElementsAre("ctor 7 2"));

        Impl missing({ "absent", "many" });
        EXPECT_THROW(missing.CreateInstance(context), ComponentException);
        EXPECT_THAT(calls, ::testing::ElementsAre("ctor 7 2"));
    }

    TEST_F(ComponentInstanceImplTest, PrefersThePropertiesConstructorAndCallsOnlyMethodsWithTheExactSignatures)
    {
        ComponentInstanceImpl<WithProperties> instance;
        instance.CreateInstance(context);
        EXPECT_EQ(nullptr, instance.GetInterfaceMap()) << "no provided interfaces";
        ASSERT_TRUE(instance.DoesModifiedMethodExist());
        context->properties["k"] = std::string("w");
        instance.Modified();
        EXPECT_THAT(calls, ::testing::ElementsAre("properties ctor v", "modified w"));

        calls.clear();
        ComponentInstanceImpl<Lookalike> lookalike;
        lookalike.CreateInstance(context);
        lookalike.Activate();
        lookalike.Modified();
        lookalike.Deactivate();
        EXPECT_FALSE(lookalike.DoesModifiedMethodExist());
        EXPECT_TRUE(calls.empty());
    }

    TEST_F(ComponentInstanceImplTest, DynamicBindersBindEachServiceAndRefuseNull)
    {
        std::vector<std::shared_ptr<Binder<Dynamic>>> binders{
            std::make_shared<DynamicBinder<Dynamic, Dep>>("many", &Dynamic::BindDep, &Dynamic::UnbindDep)
        };
        ComponentInstanceImpl<Dynamic> instance({}, binders);
        instance.CreateInstance(context);
        instance.BindReferences(context);
        instance.InvokeBindMethod("many", std::make_shared<Dep>(3));
        instance.InvokeBindMethod("not injected", std::make_shared<Dep>(4));
        instance.InvokeUnbindMethod("many", std::make_shared<Dep>(3));
        instance.UnbindReferences();
        EXPECT_THAT(calls, ::testing::ElementsAre("bind 1", "bind 2", "bind 3", "unbind 3", "unbind 2", "unbind 1"));
        EXPECT_THROW(instance.InvokeBindMethod("many", nullptr), ComponentException);
        EXPECT_EQ("many", binders[0]->GetReferenceName());
        EXPECT_EQ(us_service_interface_iid<Dep>(), binders[0]->GetReferenceType());
    }
} // namespace
