// Publishing and withdrawing service interfaces: the deliberate wait for the first
// configuration, the builder chosen from the metadata, and concurrent publishers.

#include "ServicePublisherFixture.h"

#include "support/Barrier.h"

#include "agent/spf/legacyservicepublisher/DeclarativeServicesServiceBuilder.h"
#include "agent/spf/legacyservicepublisher/LibraryLoadingServiceBuilder.h"
#include "agent/spf/legacyservicepublisher/MicroServicesServiceBuilder.h"

#include <boost/uuid/uuid_io.hpp>

#include <future>
#include <stdexcept>
#include <thread>

namespace publishertest {
namespace {

using agent::spf::core::APIVersion;
using agent::spf::core::ServiceInterface;
using agent::spf::legacyservicepublisher::DeclarativeServicesServiceBuilder;
using agent::spf::legacyservicepublisher::LibraryLoadingServiceBuilder;
using agent::spf::legacyservicepublisher::MicroServicesServiceBuilder;

class InterfaceRegistryTest : public ServicePublisherFixture {
protected:
    void configure() {
        publisher->Updated("qz.spf.legacyservicepublisher~demo",
                           configuration(1, {Any(std::string("inprocess"))}, {Any(service("Greeter", "one"))}));
    }

    static ServiceInterface greeter(ServiceInterface::Metadata metadata = {}) {
        ServiceInterface serviceInterface("Greeter", APIVersion(1, 2), std::move(metadata));
        serviceInterface.addMethod("greet", [](const std::string& name) { return "Hello " + name; });
        return serviceInterface;
    }

    // The message of the exception publishService throws, or "" when it returns.
    std::string publishFailure(ServiceInterface serviceInterface) {
        try {
            publisher->publishService(std::move(serviceInterface));
            return "";
        } catch (const std::exception& e) {
            return std::string(typeid(e).name()) == typeid(std::runtime_error).name()
                       ? e.what()
                       : std::string("(") + typeid(e).name() + ") " + e.what();
        }
    }
};

// Runs publishService on a thread of its own; the future holds its result.
std::future<boost::uuids::uuid> publishAsync(ServicePublisher& publisher, ServiceInterface serviceInterface) {
    return std::async(std::launch::async, [&publisher, serviceInterface]() mutable {
        return publisher.publishService(std::move(serviceInterface));
    });
}

TEST_F(InterfaceRegistryTest, PublishingBeforeAnyConfigurationWaitsUntilTheFirstOneArrives) {
    activate();
    auto published = publishAsync(*publisher, greeter());
    // Held back deliberately: nothing may come back while there is no configuration.
    EXPECT_EQ(std::future_status::timeout, published.wait_for(std::chrono::milliseconds(200)));
    EXPECT_EQ(0u, ServicePublisherTestAccess::interfaceCount(*publisher));

    configure();
    ASSERT_EQ(std::future_status::ready, published.wait_for(kDeadline));
    const auto id = published.get();
    EXPECT_FALSE(id.is_nil());
    EXPECT_EQ(1u, ServicePublisherTestAccess::interfaceCount(*publisher));
}

TEST_F(InterfaceRegistryTest, DeactivationReleasesEveryWaitingPublisherWithUnableToPublishService) {
    activate();
    std::vector<std::future<boost::uuids::uuid>> waiting;
    for (int i = 0; i < 4; ++i) {
        waiting.push_back(publishAsync(*publisher, greeter()));
    }
    EXPECT_EQ(std::future_status::timeout, waiting.front().wait_for(std::chrono::milliseconds(200)));

    deactivate();
    for (auto& published : waiting) {
        ASSERT_EQ(std::future_status::ready, published.wait_for(kDeadline));
        try {
            published.get();
            ADD_FAILURE() << "a publisher got through after deactivation began";
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ("Unable to publish service", e.what());
        }
    }
    // Later publishers are refused at once, configuration or not.
    configure();
    EXPECT_EQ("Unable to publish service", publishFailure(greeter()));
    EXPECT_EQ(0u, ServicePublisherTestAccess::interfaceCount(*publisher));
}

TEST_F(InterfaceRegistryTest, DeactivationEmptiesTheRegistry) {
    activate();
    configure();
    publisher->publishService(greeter());
    publisher->publishService(greeter());
    deactivate();
    EXPECT_EQ(0u, ServicePublisherTestAccess::interfaceCount(*publisher));
}

TEST_F(InterfaceRegistryTest, EachPublicationGetsItsOwnUuidAndIsWithdrawnOnce) {
    activate();
    configure();
    const auto first = publisher->publishService(greeter());
    const auto second = publisher->publishService(greeter());
    EXPECT_NE(first, second);
    EXPECT_EQ(boost::uuids::uuid::version_random_number_based, first.version());
    EXPECT_EQ(boost::uuids::uuid::variant_rfc_4122, first.variant());
    EXPECT_EQ(2u, ServicePublisherTestAccess::interfaceCount(*publisher));

    EXPECT_TRUE(publisher->unpublishService(first));
    EXPECT_FALSE(publisher->unpublishService(first));
    EXPECT_FALSE(publisher->unpublishService(boost::uuids::uuid{}));
    EXPECT_EQ(1u, ServicePublisherTestAccess::interfaceCount(*publisher));
    EXPECT_TRUE(publisher->unpublishService(second));
    EXPECT_EQ(0u, ServicePublisherTestAccess::interfaceCount(*publisher));
}

TEST_F(InterfaceRegistryTest, InterfacesAreIndexedByNameAndVersion) {
    activate();
    configure();
    publisher->publishService(ServiceInterface("Greeter", APIVersion(2, 1)));
    publisher->publishService(ServiceInterface("Adder", APIVersion(1)));
    publisher->publishService(ServiceInterface("Greeter", APIVersion(1, 9)));
    publisher->publishService(ServiceInterface("Greeter", APIVersion(2, 0, 5)));
    EXPECT_EQ((std::vector<std::pair<std::string, std::string>>{{"Adder", APIVersion(1).toString()},
                                                                {"Greeter", APIVersion(1, 9).toString()},
                                                                {"Greeter", APIVersion(2, 0, 5).toString()},
                                                                {"Greeter", APIVersion(2, 1).toString()}}),
              ServicePublisherTestAccess::interfacesByNameAndVersion(*publisher));
}

TEST_F(InterfaceRegistryTest, TheBuilderIsChosenFromTheMetadataAndARefusedInterfaceIsNotKept) {
    activate();
    configure();
    enum class Builder { DeclarativeServices, MicroServices, LibraryLoading, None };
    const struct {
        ServiceInterface::Metadata metadata;
        Builder builder;
        std::string failure;
    } rows[] = {
        {{}, Builder::DeclarativeServices, ""},
        {{{"spf.legacy.servicebuilder", "True"}, {"spf.legacy.bundleid", "0"}}, Builder::DeclarativeServices, ""},
        {{{"spf.legacy.servicebuilder", "1"}, {"spf.legacy.servicebuilderlibrary", "libx"}},
         Builder::DeclarativeServices, ""},
        {{{"spf.legacy.servicebuilder", "true "}}, Builder::DeclarativeServices, ""},
        {{{"spf.legacy.servicebuilder", "true"}, {"spf.legacy.bundleid", "0"}}, Builder::MicroServices, ""},
        // A bundle id wins over a library name.
        {{{"spf.legacy.servicebuilder", "true"},
          {"spf.legacy.bundleid", "0"},
          {"spf.legacy.servicebuilderlibrary", "libx"}},
         Builder::MicroServices, ""},
        {{{"spf.legacy.servicebuilder", "true"}, {"spf.legacy.servicebuilderlibrary", "libnotloadedyet"}},
         Builder::LibraryLoading, ""},
        {{{"spf.legacy.servicebuilder", "true"}}, Builder::None,
         "Unable to obtain library name for legacy library based ServiceInterface"},
        {{{"spf.legacy.servicebuilder", "true"}, {"spf.legacy.bundleid", "4711"}}, Builder::None,
         "Unable to obtain valid Bundle for legacy bundle based ServiceInterface"},
        {{{"spf.legacy.servicebuilder", "true"}, {"spf.legacy.bundleid", "zero"}}, Builder::None,
         std::string("(") + typeid(std::invalid_argument).name() + ") stol"},
        {{{"spf.legacy.servicebuilder", "true"}, {"spf.legacy.bundleid", "99999999999999999999"}}, Builder::None,
         std::string("(") + typeid(std::out_of_range).name() + ") stol"},
    };
    for (const auto& row : rows) {
        const auto before = ServicePublisherTestAccess::interfaceCount(*publisher);
        if (row.builder == Builder::None) {
            EXPECT_EQ(row.failure, publishFailure(greeter(row.metadata)));
            EXPECT_EQ(before, ServicePublisherTestAccess::interfaceCount(*publisher)) << row.failure;
            continue;
        }
        const auto id = publisher->publishService(greeter(row.metadata));
        const auto builder = ServicePublisherTestAccess::builderOf(*publisher, id);
        ASSERT_NE(nullptr, builder);
        EXPECT_EQ(row.builder == Builder::DeclarativeServices,
                  dynamic_cast<DeclarativeServicesServiceBuilder*>(builder.get()) != nullptr);
        EXPECT_EQ(row.builder == Builder::MicroServices,
                  dynamic_cast<MicroServicesServiceBuilder*>(builder.get()) != nullptr);
        EXPECT_EQ(row.builder == Builder::LibraryLoading,
                  dynamic_cast<LibraryLoadingServiceBuilder*>(builder.get()) != nullptr);
    }
}

TEST_F(InterfaceRegistryTest, TheDeclarativeServicesBuilderCreatesServicesFromTheInterfaceObject) {
    activate();
    configure();
    const auto id = publisher->publishService(greeter());
    const auto builder = ServicePublisherTestAccess::builderOf(*publisher, id);
    ASSERT_NE(nullptr, builder);
    const auto service = builder->create();
    ASSERT_NE(nullptr, service);
    EXPECT_EQ("Greeter", service->name());
}

TEST_F(InterfaceRegistryTest, PublishersReleasedTogetherByTheFirstConfigurationEachGetTheirOwnEntry) {
    activate();
    constexpr int kPublishers = 8;
    testsupport::Barrier start(kPublishers + 1);
    std::vector<std::future<boost::uuids::uuid>> published;
    for (int i = 0; i < kPublishers; ++i) {
        published.push_back(std::async(std::launch::async, [this, &start] {
            start.ArriveAndWait();
            return publisher->publishService(greeter());
        }));
    }
    start.ArriveAndWait();
    configure();

    std::set<boost::uuids::uuid> ids;
    for (auto& result : published) {
        ASSERT_EQ(std::future_status::ready, result.wait_for(kDeadline));
        ids.insert(result.get());
    }
    EXPECT_EQ(static_cast<std::size_t>(kPublishers), ids.size());
    EXPECT_EQ(static_cast<std::size_t>(kPublishers), ServicePublisherTestAccess::interfaceCount(*publisher));

    // Every uuid withdrawn by many threads at once: exactly one of them succeeds per uuid.
    testsupport::Barrier withdraw(2 * kPublishers);
    std::vector<std::future<bool>> withdrawn;
    for (const auto& id : ids) {
        for (int copy = 0; copy < 2; ++copy) {
            withdrawn.push_back(std::async(std::launch::async, [this, &withdraw, id] {
                withdraw.ArriveAndWait();
                return publisher->unpublishService(id);
            }));
        }
    }
    int successes = 0;
    for (auto& result : withdrawn) {
        successes += result.get() ? 1 : 0;
    }
    EXPECT_EQ(kPublishers, successes);
    EXPECT_EQ(0u, ServicePublisherTestAccess::interfaceCount(*publisher));
}

}  // namespace
}  // namespace publishertest
