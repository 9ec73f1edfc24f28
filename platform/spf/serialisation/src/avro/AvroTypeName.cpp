#include "agent/spf/serialisation/avro/AvroTypeName.h"

#include "BuiltInAvroTypes.h"

#include "agent/spf/core/ExportedCallback.h"
#include "agent/spf/core/ExportedDataSink.h"
#include "agent/spf/core/ExportedDataSource.h"

#include <mutex>
#include <unordered_map>

namespace agent::spf::serialisation {

namespace {

// The names avroTypeName knows, by type. It only grows, and a type's name never changes.
class AvroTypeNames {
public:
    AvroTypeNames() {
        detail::forEachBuiltInAvroType([this](auto* type) {
            using T = std::remove_pointer_t<decltype(type)>;
            names_.emplace(typeid(T), AvroTypeName<T>::get());
        });
        names_.emplace(typeid(void), "void");
        names_.emplace(typeid(core::ExportedCallback), "callback");
        names_.emplace(typeid(core::ExportedDataSink), "stream");
        names_.emplace(typeid(core::ExportedDataSource), "stream");
    }

    void remember(std::type_index type, std::string name) {
        std::lock_guard<std::mutex> lock(namesMutex_);
        names_.emplace(type, std::move(name));
    }

    std::string find(std::type_index type) {
        {
            std::lock_guard<std::mutex> lock(namesMutex_);
            if (auto it = names_.find(type); it != names_.end()) {
                return it->second;
            }
        }
        return "record:" + core::typeName(type);
    }

private:
    std::mutex namesMutex_;
    std::unordered_map<std::type_index, std::string> names_;
};

AvroTypeNames& avroTypeNames() {
    // Never destroyed: registrations and look-ups may come late from any thread.
    static auto* names = new AvroTypeNames();
    return *names;
}

}  // namespace

std::string avroTypeName(std::type_index type) {
    return avroTypeNames().find(type);
}

core::MethodSignature avroMethodSignature(const core::MethodImplementation& method) {
    core::MethodSignature signature;
    for (const auto& type : method.argumentTypes()) {
        signature.argumentTypes.push_back(avroTypeName(type));
    }
    signature.resultType = avroTypeName(method.returnType());
    return signature;
}

namespace detail {

void rememberAvroTypeName(std::type_index type, std::string name) {
    avroTypeNames().remember(type, std::move(name));
}

}  // namespace detail

}  // namespace agent::spf::serialisation
