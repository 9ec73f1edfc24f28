#include "agent/spf/threadpoolprovider/ExecutorThreadPoolProvider.h"

namespace agent::spf::threadpoolprovider {

using foundation::concurrent::threadpool::Executor;

ExecutorThreadPoolProvider::ExecutorThreadPoolProvider() : executor_(std::make_shared<Executor>()) {}

ExecutorThreadPoolProvider::~ExecutorThreadPoolProvider() {
    shutDown();
}

std::shared_ptr<Executor> ExecutorThreadPoolProvider::getExecutor() const {
    return executor_;
}

void ExecutorThreadPoolProvider::shutDown() {
    executor_->shutDown();
}

}  // namespace agent::spf::threadpoolprovider
