#ifndef TESTS_MICROSERVICES_CM_CMTESTSUPPORT_H
#define TESTS_MICROSERVICES_CM_CMTESTSUPPORT_H

#include "support/Barrier.h"
#include "support/FrameworkFixture.h"

#include "cppmicroservices/Any.h"
#include "cppmicroservices/AnyMap.h"
#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/ServiceRegistration.h"
#include "cppmicroservices/cm/ConfigurationAdmin.hpp"
#include "cppmicroservices/cm/ConfigurationListener.hpp"
#include "cppmicroservices/cm/ManagedService.hpp"
#include "cppmicroservices/cm/ManagedServiceFactory.hpp"

#include "foundation/log/CaptureSink.h"
#include "foundation/log/Sink.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace cmtest
{
    using cppmicroservices::AnyMap;
    using namespace std::chrono_literals;

    inline constexpr auto kDeadline = std::chrono::seconds(20);

    // One call a recorder received.
    struct Call
    {
        enum Kind
        {
            Updated,
            Removed
        };
        Kind kind;
        std::string pid; ///< for a ManagedService, the PID it was registered for
        AnyMap properties;
        std::thread::id thread;
    };

    // Records the calls of any thread and lets tests wait for them; hook,
    // when set (before registering), runs inside each call after recording
    // and may throw.
    class Recorder
    {
      public:
        void
        Record(Call::Kind kind, std::string const& pid, AnyMap const& properties)
        {
            {
                std::lock_guard<std::mutex> lock(callsMutex);
                calls.push_back({ kind, pid, properties, std::this_thread::get_id() });
                added.notify_all();
            }
            if (hook)
            {
                hook();
            }
        }

        std::vector<Call>
        Calls() const
        {
            std::lock_guard<std::mutex> lock(callsMutex);
            return calls;
        }

        // Waits until there are n calls or the deadline passes.
        bool
        WaitForCount(std::size_t n) const
        {
            std::unique_lock<std::mutex> lock(callsMutex);
            return added.wait_for(lock, kDeadline, [&] { return calls.size() >= n; });
        }

        std::function<void()> hook;

      private:
        mutable std::mutex callsMutex;
        mutable std::condition_variable added;
        std::vector<Call> calls; // guarded by callsMutex
    };

    class RecordingFactory : public cppmicroservices::service::cm::ManagedServiceFactory, public Recorder
    {
      public:
        void
        Updated(std::string const& pid, AnyMap const& properties) override
        {
            Record(Call::Updated, pid, properties);
        }

        void
        Removed(std::string const& pid) override
        {
            Record(Call::Removed, pid, AnyMap(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS));
        }
    };

    // A managed service recording its calls; an empty map is a removal.
    class RecordingService : public cppmicroservices::service::cm::ManagedService, public Recorder
    {
      public:
        explicit RecordingService(std::string pid = "") : pid(std::move(pid)) {}

        void
        Updated(AnyMap const& properties) override
        {
            Record(properties.empty() ? Call::Removed : Call::Updated, pid, properties);
        }

        std::string const pid;
    };

    // Holds the delivery thread inside its calls until Open(), so that tests
    // can queue work behind it (WaitForCount(1): the thread is held).
    class Gate : public RecordingService
    {
      public:
        Gate()
        {
            hook = [opened = opened] { opened.wait_for(kDeadline); };
        }

        void
        Open()
        {
            open.set_value();
        }

      private:
        std::promise<void> open;
        std::shared_future<void> const opened = open.get_future().share();
    };

    // The integer property "n" of properties, or -1.
    inline int
    N(AnyMap const& properties)
    {
        auto found = properties.find("n");
        return found == properties.end() ? -1 : cppmicroservices::any_cast<int>(found->second);
    }

    // The calls as text: "updated fp~a 1" (the pid when known, the property n
    // when set) or "removed fp~a".
    inline std::vector<std::string>
    Texts(std::vector<Call> const& calls)
    {
        std::vector<std::string> texts;
        for (auto const& call : calls)
        {
            texts.push_back(std::string(call.kind == Call::Updated ? "updated" : "removed")
                            + (call.pid.empty() ? "" : " " + call.pid)
                            + (N(call.properties) == -1 ? "" : " " + std::to_string(N(call.properties))));
        }
        return texts;
    }

    // Whether future completed before the deadline, and not with an exception
    // (a broken promise, say).
    inline bool
    Ready(std::shared_future<void> const& future)
    {
        if (future.wait_for(kDeadline) != std::future_status::ready)
        {
            return false;
        }
        try
        {
            future.get();
            return true;
        }
        catch (...)
        {
            return false;
        }
    }

    // A real framework with the Configuration Admin bundle installed from
    // its built file and started.
    class ConfigurationAdminFixture : public testsupport::FrameworkFixture
    {
      protected:
        void
        SetUp() override
        {
            FrameworkFixture::SetUp();
            cmBundle = Install(CM_BUNDLE_PATH);
            ASSERT_TRUE(cmBundle);
            cmBundle.Start();
            auto reference = context.GetServiceReference<cppmicroservices::service::cm::ConfigurationAdmin>();
            ASSERT_TRUE(reference) << "the bundle registered no ConfigurationAdmin";
            admin = context.GetService(reference);
            ASSERT_TRUE(admin);
        }

        void
        TearDown() override
        {
            admin.reset();
            FrameworkFixture::TearDown();
        }

        // Registers service under I with service.pid pid (a std::string, or
        // a std::vector<std::string>).
        template <class I, class Impl>
        cppmicroservices::ServiceRegistration<I>
        Register(std::shared_ptr<Impl> const& service, cppmicroservices::Any pid)
        {
            return context.RegisterService<I>(service, { { "service.pid", std::move(pid) } });
        }

        cppmicroservices::Bundle cmBundle;
        std::shared_ptr<cppmicroservices::service::cm::ConfigurationAdmin> admin;
    };

    // Captures the records of the logger "cppmicroservices::cm" while alive.
    class CmLogCapture
    {
      public:
        CmLogCapture() : sink(std::make_shared<foundation::log::capture_sink>("cppmicroservices::cm"))
        {
            foundation::log::addSink(sink);
        }
        ~CmLogCapture() { foundation::log::removeSink(sink); }

        bool
        WaitForText(std::string const& text) const
        {
            return sink->waitFor([&](foundation::log::record const& r) { return r.text.find(text) != std::string::npos; },
                                 std::chrono::steady_clock::now() + kDeadline);
        }

        std::shared_ptr<foundation::log::capture_sink> const sink;
    };
} // namespace cmtest

#endif // TESTS_MICROSERVICES_CM_CMTESTSUPPORT_H
