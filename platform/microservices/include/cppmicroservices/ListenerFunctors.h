#ifndef CPPMICROSERVICES_LISTENERFUNCTORS_H
#define CPPMICROSERVICES_LISTENERFUNCTORS_H

#include <functional>

namespace cppmicroservices
{
    class ServiceEvent;
    class BundleEvent;
    class FrameworkEvent;

    // Listeners run synchronously on the thread that caused the event, with
    // no framework lock held; an exception they throw is caught, logged and
    // reported as a FRAMEWORK_ERROR event.
    using ServiceListener = std::function<void(ServiceEvent const&)>;
    using BundleListener = std::function<void(BundleEvent const&)>;
    using FrameworkListener = std::function<void(FrameworkEvent const&)>;
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_LISTENERFUNCTORS_H
