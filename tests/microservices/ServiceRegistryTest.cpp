// The service registry through BundleContext: ordering, filters, properties
// and the life of references and registrations.

#include "support/Barrier.h"
#include "support/Thrown.h"
#include "support/FrameworkFixture.h"

#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/Constants.h"
#include "cppmicroservices/ServiceEvent.h"
#include "cppmicroservices/ServiceFactory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <vector>

using namespace cppmicroservices;

namespace regtest
{
    struct Foo
    {
        virtual ~Foo() = default;
        virtual int Value() const = 0;
    };
    struct Bar
    {
        virtual ~Bar() = default;
    };
    struct FooImpl : Foo
    {
        explicit FooImpl(int v = 0) : v(v) {}
        int
        Value() const override
        {
            return v;
        }
        int v;
    };
    struct FooBar : Foo, Bar
    {
        int
        Value() const override
        {
            return 99;
        }
    };
    struct Unnamed
    {
        virtual ~Unnamed() = default;
    };
} // namespace regtest

CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE(regtest::Bar, "org.example.Bar/1.0")

namespace
{
    using regtest::Foo;
    using regtest::FooImpl;

    class ServiceRegistryTest : public testsupport::FrameworkFixture
    {
      protected:
        ServiceRegistration<Foo>
        RegisterFoo(int value, ServiceProperties props = {})
        {
            return context.RegisterService<Foo>(std::make_shared<FooImpl>(value), props);
        }

        std::vector<long>
        Ids(std::vector<ServiceReferenceU> const& refs)
        {
            std::vector<long> ids;
            for (auto const& r : refs)
            {
                ids.push_back(any_cast<long>(r.GetProperty(Constants::SERVICE_ID)));
            }
            return ids;
        }

        long
        IdOf(ServiceRegistrationBase const& reg)
        {
            return any_cast<long>(reg.GetReference().GetProperty(Constants::SERVICE_ID));
        }
    };

    TEST_F(ServiceRegistryTest, ReferencesComeBestFirstByRankingThenLowestIdAndFollowRankingChanges)
    {
        auto a = RegisterFoo(1);
        auto b = RegisterFoo(2, { { Constants::SERVICE_RANKING, 10 } });
        auto c = RegisterFoo(3, { { Constants::SERVICE_RANKING, 10 } });
        auto d = RegisterFoo(4, { { Constants::SERVICE_RANKING, -5 } });
        auto longRanked = RegisterFoo(5, { { Constants::SERVICE_RANKING, 100L } }); // not an int: counts as 0

        auto refs = context.GetServiceReferences<Foo>();
        std::vector<int> values;
        for (auto const& r : refs)
        {
            values.push_back(context.GetService(r)->Value());
        }
        EXPECT_EQ((std::vector<int>{ 2, 3, 1, 5, 4 }), values);
        auto sorted = refs;
        std::sort(sorted.begin(), sorted.end());
        EXPECT_EQ(refs.front(), sorted.back()) << "reference order agrees: the preferred service is the maximum";
        EXPECT_EQ(refs.back(), sorted.front());

        a.SetProperties({ { Constants::SERVICE_RANKING, 11 } });
        EXPECT_EQ(1, context.GetService(context.GetServiceReference<Foo>())->Value());
        a.SetProperties({});
        EXPECT_EQ(2, context.GetService(context.GetServiceReference<Foo>())->Value());
        EXPECT_THROW(a.SetProperties({ { Constants::SERVICE_RANKING, std::string("9") } }), std::invalid_argument);

        long const firstId = IdOf(a);
        a.Unregister();
        EXPECT_GT(IdOf(RegisterFoo(6)), IdOf(longRanked)) << "ids are never reused";
        EXPECT_GE(firstId, 1);
    }

    TEST_F(ServiceRegistryTest, FiltersSelectByCaseInsensitiveKeysClassAndId)
    {
        auto en = RegisterFoo(1, { { "Lang", std::string("en") } });
        auto de = RegisterFoo(2, { { "lang", std::string("de") } });
        auto none = RegisterFoo(3);

        struct Case
        {
            std::string filter;
            std::vector<int> values;
        };
        std::vector<Case> const cases = {
            { "(lang=en)", { 1 } },
            { "(LANG=*)", { 1, 2 } },
            { "(!(lang=*))", { 3 } },
            { "(objectclass=regtest::Foo)", { 1, 2, 3 } },
            { "(service.id=" + std::to_string(IdOf(de)) + ")", { 2 } },
        };
        for (auto const& c : cases)
        {
            std::vector<int> values;
            for (auto const& r : context.GetServiceReferences<Foo>(c.filter))
            {
                values.push_back(context.GetService(r)->Value());
            }
            EXPECT_EQ(c.values, values) << c.filter;
        }
        EXPECT_THROW(context.GetServiceReferences("", "(lang=en"), std::invalid_argument);
        EXPECT_THROW(context.AddServiceListener([](ServiceEvent const&) {}, "(&(a=1)"), std::invalid_argument);
    }

    TEST_F(ServiceRegistryTest, ClasslessQueriesComeInRegistrationOrderAndMatchTheIndexedForm)
    {
        auto low = RegisterFoo(1);
        auto high = RegisterFoo(2, { { Constants::SERVICE_RANKING, 50 } });
        auto other = context.RegisterService<regtest::Bar>(std::make_shared<regtest::FooBar>());

        auto all = context.GetServiceReferences("");
        EXPECT_EQ((std::vector<long>{ IdOf(low), IdOf(high), IdOf(other) }), Ids(all));

        // "(objectclass=X)" is answered from the class index; it must give the
        // same answer as the general filter path.
        auto viaIndex = context.GetServiceReferences("", "(objectclass=regtest::Foo)");
        auto viaFilter = context.GetServiceReferences("", "(&(objectclass=regtest::Foo)(service.id>=0))");
        EXPECT_EQ((std::vector<long>{ IdOf(low), IdOf(high) }), Ids(viaIndex));
        EXPECT_EQ(Ids(viaFilter), Ids(viaIndex));
    }

    TEST_F(ServiceRegistryTest, FrameworkPropertiesWinAndCaseVariantKeysAreRejected)
    {
        auto reg = RegisterFoo(1,
                               { { "SERVICE.ID", 5L },
                                 { "objectClass", std::vector<std::string>{ "fake" } },
                                 { "service.scope", std::string("prototype") } });
        auto ref = reg.GetReference();
        EXPECT_NE(5L, any_cast<long>(ref.GetProperty("Service.Id")));
        EXPECT_EQ(std::vector<std::string>{ "regtest::Foo" },
                  any_cast<std::vector<std::string>>(ref.GetProperty(Constants::OBJECTCLASS)));
        EXPECT_EQ(Constants::SCOPE_SINGLETON, any_cast<std::string>(ref.GetProperty(Constants::SERVICE_SCOPE)));
        reg.SetProperties({ { "service.id", 1L }, { "extra", 1 } });
        EXPECT_EQ(IdOf(reg), any_cast<long>(ref.GetProperty("service.id")));

        EXPECT_THROW(RegisterFoo(2, { { "port", 1 }, { "PORT", 2 } }), std::runtime_error);
        EXPECT_EQ(1u, context.GetServiceReferences<Foo>().size());
        EXPECT_THROW(reg.SetProperties({ { "a", 1 }, { "A", 2 } }), std::runtime_error);
        EXPECT_EQ(1, any_cast<int>(ref.GetProperty("EXTRA"))) << "a rejected update changed nothing";
    }

    TEST_F(ServiceRegistryTest, UnregisteringEndsUseAndRefusesFurtherUseOfTheRegistration)
    {
        auto reg = RegisterFoo(1, { { "color", std::string("red") } });
        auto ref = reg.GetReference();
        EXPECT_EQ(framework->GetBundleId(), ref.GetBundle().GetBundleId());
        {
            auto service = context.GetService(ref);
            EXPECT_EQ(ref, ServiceReferenceFromService(service));
            ASSERT_EQ(1u, framework->GetServicesInUse().size());
            EXPECT_EQ(1u, ref.GetUsingBundles().size());
        }
        EXPECT_TRUE(framework->GetServicesInUse().empty()) << "the use ends with the last pointer";
        EXPECT_TRUE(ref.GetUsingBundles().empty());

        bool obtainedWhileUnregistering = false;
        auto token = context.AddServiceListener(
            [&](ServiceEvent const& e)
            {
                obtainedWhileUnregistering = e.GetType() == ServiceEvent::SERVICE_UNREGISTERING
                                             && context.GetService(ServiceReference<Foo>(e.GetServiceReference()));
            });
        reg.Unregister();
        context.RemoveListener(std::move(token));
        EXPECT_TRUE(obtainedWhileUnregistering) << "still obtainable while UNREGISTERING is delivered";
        EXPECT_FALSE(ref);
        EXPECT_FALSE(ref.GetBundle());
        EXPECT_EQ("red", any_cast<std::string>(ref.GetProperty("color"))) << "properties outlive the registration";
        EXPECT_EQ(nullptr, context.GetService(ServiceReference<Foo>(ref)));
        EXPECT_EQ("Service is unregistered", testsupport::ThrownText<std::logic_error>([&] { reg.Unregister(); }));
        EXPECT_THROW(reg.SetProperties({}), std::logic_error);
        EXPECT_THROW(reg.GetReference(), std::logic_error);
        EXPECT_THROW(ServiceRegistrationU().Unregister(), std::logic_error);
    }

    TEST_F(ServiceRegistryTest, ReferencesBindToTheRequestedInterfaceAndBadRegistrationsAreRefused)
    {
        auto reg = context.RegisterService<Foo, regtest::Bar>(std::make_shared<regtest::FooBar>());
        ServiceReference<Foo> foo = reg.GetReference<Foo>();
        ServiceReference<regtest::Bar> bar = reg.GetReference<regtest::Bar>();
        EXPECT_EQ("org.example.Bar/1.0", bar.GetInterfaceId());
        EXPECT_EQ(foo, bar) << "both name the same registration";
        EXPECT_FALSE(ServiceReference<regtest::Unnamed>(foo)) << "the service lacks that interface";
        auto map = context.GetService(ServiceReferenceU(foo));
        ASSERT_TRUE(map);
        EXPECT_EQ(99, ExtractInterface<Foo>(map)->Value());

        InterfaceMapPtr scoped = std::make_shared<InterfaceMap>();
        (*scoped)["::regtest::Foo"] = std::make_shared<FooImpl>(5);
        auto scopedReg = context.RegisterService(scoped);
        EXPECT_EQ("regtest::Foo", context.GetServiceReference("::regtest::Foo").GetInterfaceId())
            << "leading scope operators are stripped";

        InterfaceMapPtr emptyKey = std::make_shared<InterfaceMap>();
        (*emptyKey)[""] = std::make_shared<FooImpl>();
        EXPECT_THROW(context.RegisterService(InterfaceMapConstPtr()), std::invalid_argument);
        EXPECT_THROW(context.RegisterService(std::make_shared<InterfaceMap>()), std::invalid_argument);
        EXPECT_THROW(context.RegisterService(emptyKey), std::invalid_argument);
        EXPECT_THROW(context.RegisterService<Foo>(std::shared_ptr<ServiceFactory>()), ServiceException);
        EXPECT_THROW(context.GetService(ServiceReferenceU()), std::invalid_argument);
    }

    // --- many threads at once ------------------------------------------------

    constexpr int kThreads = 8;
    constexpr int kRounds = 150;

    TEST_F(ServiceRegistryTest, ConcurrentRegisterGetListenAndUnregisterKeepEveryCountBalanced)
    {
        std::atomic<int> registered{ 0 };
        std::atomic<int> unregistering{ 0 };
        auto global = context.AddServiceListener(
            [&](ServiceEvent const& e)
            {
                if (e.GetType() == ServiceEvent::SERVICE_REGISTERED)
                {
                    ++registered;
                }
                else if (e.GetType() == ServiceEvent::SERVICE_UNREGISTERING)
                {
                    ++unregistering;
                }
            },
            "(objectclass=regtest::Foo)");

        std::vector<std::string> failures(kThreads);
        testsupport::RunConcurrently(kThreads,
                [&](int t)
                {
                    std::atomic<int> own{ 0 };
                    auto token = context.AddServiceListener([&](ServiceEvent const&) { ++own; },
                                                            "(owner=" + std::to_string(t) + ")");
                    for (int i = 0; i < kRounds; ++i)
                    {
                        auto reg = RegisterFoo(t, { { "owner", t }, { Constants::SERVICE_RANKING, i % 3 } });
                        auto mine = context.GetServiceReferences<Foo>("(owner=" + std::to_string(t) + ")");
                        if (mine.size() != 1)
                        {
                            failures[t] = "saw " + std::to_string(mine.size()) + " of its own services";
                        }
                        auto service = context.GetService(reg.GetReference());
                        if (!service || service->Value() != t)
                        {
                            failures[t] = "could not use its own service";
                        }
                        for (auto const& ref : context.GetServiceReferences<Foo>())
                        {
                            context.GetService(ref); // may be gone already: null is fine, a crash is not
                        }
                        reg.SetProperties({ { "owner", t }, { "round", i } });
                        reg.Unregister();
                    }
                    context.RemoveListener(std::move(token));
                    if (own.load() != 3 * kRounds)
                    {
                        failures[t] = "its listener saw " + std::to_string(own.load()) + " events";
                    }
                });
        for (int t = 0; t < kThreads; ++t)
        {
            EXPECT_EQ("", failures[t]) << "thread " << t;
        }
        EXPECT_EQ(kThreads * kRounds, registered.load());
        EXPECT_EQ(kThreads * kRounds, unregistering.load());
        EXPECT_TRUE(context.GetServiceReferences<Foo>().empty());
        context.RemoveListener(std::move(global));
    }

    TEST_F(ServiceRegistryTest, ConcurrentUnregisterOfOneServiceDeliversUnregisteringOnce)
    {
        for (int round = 0; round < 20; ++round)
        {
            auto reg = RegisterFoo(round);
            std::atomic<int> events{ 0 };
            auto token = context.AddServiceListener(
                [&](ServiceEvent const& e)
                {
                    if (e.GetType() == ServiceEvent::SERVICE_UNREGISTERING)
                    {
                        ++events;
                    }
                });
            std::atomic<int> succeeded{ 0 };
            std::atomic<int> refused{ 0 };
            testsupport::RunConcurrently(kThreads,
                                         [&](int)
                                         {
                                             try
                                             {
                                                 reg.Unregister();
                                                 ++succeeded;
                                             }
                                             catch (std::logic_error const&)
                                             {
                                                 ++refused;
                                             }
                                         });
            EXPECT_EQ(1, events.load());
            EXPECT_EQ(kThreads, succeeded.load() + refused.load());
            EXPECT_GE(succeeded.load(), 1);
            context.RemoveListener(std::move(token));
        }
    }
} // namespace
