// Components whose references bind in every way the binding tests follow:
// dynamic ones bound in place through Bind/Unbind methods, static ones whose
// change replaces the instance (one of them injected with every match of a
// multiple reference), one that refers to the service it provides,
// and a disabled one next to one that enables and disables components.

#include "DSTestComponent.h"

namespace ds_test
{
    // Records the feeds bound to it.
    class FeedBinder : public Probed
    {
      public:
        using Probed::Probed;

        void
        Bindfeed(std::shared_ptr<test::Feed> const& feed)
        {
            Record("bind", IdOf(feed));
        }

        void
        Unbindfeed(std::shared_ptr<test::Feed> const& feed)
        {
            Record("unbind", IdOf(feed));
        }
    };

    // Dynamic, greedy, 1..1.
    class Dynamic : public FeedBinder
    {
      public:
        Dynamic() : FeedBinder("Dynamic") {}
    };

    // Dynamic, reluctant, 0..n.
    class Multi : public FeedBinder
    {
      public:
        Multi() : FeedBinder("Multi") {}
    };

    // Looks its feed up in Activate instead of taking it in the constructor.
    class FeedUser : public Probed
    {
      public:
        using Probed::Probed;

        void
        Activate(std::shared_ptr<ComponentContext> const& context)
        {
            auto const feed = context->LocateService<test::Feed>("feed");
            Record("activate", feed ? IdOf(feed) : "none");
        }
    };

    // Static, greedy, 1..1.
    class Greedy : public FeedUser
    {
      public:
        Greedy() : FeedUser("Greedy") {}
    };

    // Static, reluctant, 0..1.
    class Optional : public FeedUser
    {
      public:
        Optional() : FeedUser("Optional") {}
    };

    // Static, reluctant, 0..n: every match is injected into its constructor.
    class Collector : public Probed
    {
      public:
        explicit Collector(std::vector<std::shared_ptr<test::Feed>> const& feeds) : Probed("Collector", Ids(feeds)) {}

      private:
        static std::string
        Ids(std::vector<std::shared_ptr<test::Feed>> const& feeds)
        {
            std::string ids;
            for (auto const& feed : feeds)
            {
                ids += (ids.empty() ? "" : ",") + IdOf(feed);
            }
            return ids;
        }
    };

    // Provides test::Echo and binds every other test::Echo dynamically: never its own.
    class SelfRef : public ProbedService<test::Echo>
    {
      public:
        SelfRef() : ProbedService("SelfRef") {}

        void
        Bindecho(std::shared_ptr<test::Echo> const& echo)
        {
            Record("bind", std::to_string(echo->Instance()));
        }

        void
        Unbindecho(std::shared_ptr<test::Echo> const& echo)
        {
            Record("unbind", std::to_string(echo->Instance()));
        }
    };

    // Disabled in the manifest.
    class Dormant : public Probed
    {
      public:
        Dormant() : Probed("Dormant") {}
    };

    // Enables and disables components through its ComponentContext.
    class Switcher : public test::Switch
    {
      public:
        void
        Activate(std::shared_ptr<ComponentContext> const& ctx)
        {
            context = ctx;
        }

        void
        Enable(std::string const& name) override
        {
            context->EnableComponent(name);
        }

        void
        Disable(std::string const& name) override
        {
            context->DisableComponent(name);
        }

      private:
        std::shared_ptr<ComponentContext> context;
    };
} // namespace ds_test

using namespace ds_test;

DS_TEST_COMPONENT(ds_test_Dynamic, ComponentInstanceImpl<Dynamic>({}, Binds<Dynamic>("feed", &Dynamic::Bindfeed, &Dynamic::Unbindfeed)))
DS_TEST_COMPONENT(ds_test_Multi, ComponentInstanceImpl<Multi>({}, Binds<Multi>("feed", &Multi::Bindfeed, &Multi::Unbindfeed)))
DS_TEST_COMPONENT(ds_test_Greedy, ComponentInstanceImpl<Greedy>())
DS_TEST_COMPONENT(ds_test_Optional, ComponentInstanceImpl<Optional>())
DS_TEST_COMPONENT(ds_test_Collector,
                  ComponentInstanceImpl<Collector, std::tuple<>, std::vector<std::shared_ptr<test::Feed>>>({ "feed" }))
DS_TEST_COMPONENT(ds_test_SelfRef,
                  ComponentInstanceImpl<SelfRef, std::tuple<test::Echo>>({}, Binds<SelfRef>("echo", &SelfRef::Bindecho, &SelfRef::Unbindecho)))
DS_TEST_COMPONENT(dormant, ComponentInstanceImpl<Dormant>())
DS_TEST_COMPONENT(ds_test_Switcher, ComponentInstanceImpl<Switcher, std::tuple<test::Switch>>())
