#include "agent/core/serviceutils/Context.h"

#include <boost/uuid/random_generator.hpp>

#include <stdexcept>

namespace agent::core::serviceutils {

Context::_ThreadPool::_ThreadPool(ThreadPool* pool) {
    if (pool != nullptr) {
        executor_ = std::make_unique<foundation::concurrent::threadpool::ConcurrencyLimitedExecutor>(*pool);
    }
}

Context::_ThreadPool::~_ThreadPool() = default;

void Context::_ThreadPool::setConcurrencyLimit(unsigned limit) {
    if (executor_) {
        executor_->setConcurrencyLimit(limit);
    }
}

void Context::_ThreadPool::postWork(std::function<void()> work) {
    if (!executor_) {
        throw std::logic_error("Context has no thread pool");
    }
    executor_->postWork(std::move(work));
}

void Context::_ThreadPool::wait() {
    if (executor_) {
        executor_->wait();
    }
}

Context::Context() : threadPool_(std::make_shared<_ThreadPool>(nullptr)) {}

Context::Context(boost::uuids::uuid node, boost::uuids::uuid serviceInstance, ThreadPool* pool,
                 transport::Transport* transport, std::function<boost::uuids::uuid()> uuidGenerator)
    : node_(node),
      serviceInstance_(serviceInstance),
      pool_(pool),
      transport_(transport),
      uuidGenerator_(std::move(uuidGenerator)),
      threadPool_(std::make_shared<_ThreadPool>(pool)) {}

boost::uuids::uuid Context::generateUUID() const {
    if (uuidGenerator_) {
        return uuidGenerator_();
    }
    thread_local boost::uuids::random_generator generator;
    return generator();
}

}  // namespace agent::core::serviceutils
