#ifndef TESTS_SUPPORT_SERVICEEXCHANGEFIXTURE_H
#define TESTS_SUPPORT_SERVICEEXCHANGEFIXTURE_H

#include "support/ContainerSupport.h"

#include "agent/core/service/ServiceBase.h"
#include "agent/directory/DirectoryServiceClient.h"
#include "agent/nanomsgtransport/Exchange.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace testsupport
{
    // An exchange (with its directory) on a fresh inproc:// URL, a container the services
    // run on, and a client container with a directory client. The services a test puts in
    // started_ are stopped in TearDown, before the containers and the exchange go.
    class ServiceExchangeFixture : public ::testing::Test
    {
      protected:
        // The exchange listens on "inproc://<urlPrefix><n>".
        explicit ServiceExchangeFixture(std::string urlPrefix) : urlPrefix_(std::move(urlPrefix)) {}

        void
        SetUp() override
        {
            endpoint_ = exchange_.listen("inproc://" + urlPrefix_ + std::to_string(++counter_));
            serviceContainer_ = makeContainer(endpoint_);
            clientContainer_ = makeContainer(endpoint_);
            directory_ = std::make_unique<agent::directory::DirectoryServiceClient>(
                clientContainer_->createContext(randomId()), std::chrono::milliseconds(5000));
        }

        void
        TearDown() override
        {
            for (auto& service : started_)
            {
                service->stop();
            }
            started_.clear();
            directory_.reset();
            clientContainer_.reset();
            serviceContainer_.reset();
            exchange_.close();
        }

        static inline std::atomic<int> counter_{ 0 };
        std::string const urlPrefix_;
        agent::nanomsgtransport::Exchange exchange_;
        std::string endpoint_;
        std::shared_ptr<agent::core::container::ServiceContainer> serviceContainer_;
        std::shared_ptr<agent::core::container::ServiceContainer> clientContainer_;
        std::unique_ptr<agent::directory::DirectoryServiceClient> directory_;
        std::vector<std::shared_ptr<agent::core::service::ServiceBase>> started_;
    };
} // namespace testsupport

#endif // TESTS_SUPPORT_SERVICEEXCHANGEFIXTURE_H
