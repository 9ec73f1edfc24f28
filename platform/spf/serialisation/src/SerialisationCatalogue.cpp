#include "agent/spf/serialisation/SerialisationCatalogue.h"

#include "agent/spf/core/TypeName.h"

#include <mutex>
#include <set>
#include <stdexcept>

namespace agent::spf::serialisation {

void SerialisationCatalogue::registerSerialiser(const std::string& contentType, std::type_index type,
                                                SerialiseFunction serialise) {
    if (!serialise) {
        throw std::invalid_argument("A serialiser needs a function");
    }
    std::unique_lock<std::shared_mutex> lock(registryMutex_);
    serialisers_.insert_or_assign(Key(contentType, type), std::move(serialise));
}

void SerialisationCatalogue::registerDeserialiser(const std::string& contentType, std::type_index type,
                                                  Deserialiser::Function deserialise) {
    if (!deserialise) {
        throw std::invalid_argument("A deserialiser needs a function");
    }
    std::unique_lock<std::shared_mutex> lock(registryMutex_);
    deserialisers_.insert_or_assign(Key(contentType, type), std::move(deserialise));
}

SerialiseFunction SerialisationCatalogue::findSerialiser(const std::string& contentType, std::type_index type) const {
    std::shared_lock<std::shared_mutex> lock(registryMutex_);
    auto it = serialisers_.find(Key(contentType, type));
    return it == serialisers_.end() ? SerialiseFunction() : it->second;
}

Deserialiser SerialisationCatalogue::getDeserialiser(const std::string& contentType, std::type_index type) const {
    if (type == std::type_index(typeid(void))) {
        return Deserialiser([](std::istream&) { return core::GenericPayload(); });
    }
    std::shared_lock<std::shared_mutex> lock(registryMutex_);
    auto it = deserialisers_.find(Key(contentType, type));
    return it == deserialisers_.end() ? Deserialiser() : Deserialiser(it->second);
}

bool SerialisationCatalogue::hasSerialiser(const std::string& contentType, std::type_index type) const {
    std::shared_lock<std::shared_mutex> lock(registryMutex_);
    return serialisers_.count(Key(contentType, type)) != 0;
}

bool SerialisationCatalogue::hasDeserialiser(const std::string& contentType, std::type_index type) const {
    if (type == std::type_index(typeid(void))) {
        return true;
    }
    std::shared_lock<std::shared_mutex> lock(registryMutex_);
    return deserialisers_.count(Key(contentType, type)) != 0;
}

std::vector<std::string> SerialisationCatalogue::contentTypes() const {
    std::set<std::string> types;
    {
        std::shared_lock<std::shared_mutex> lock(registryMutex_);
        for (const auto& entry : serialisers_) {
            types.insert(entry.first.first);
        }
        for (const auto& entry : deserialisers_) {
            types.insert(entry.first.first);
        }
    }
    return {types.begin(), types.end()};
}

std::vector<Serialiser> createSerialisersFor(core::GenericPayload&& payload, const SerialisationCatalogue& catalogue,
                                             const std::string& contentType, std::size_t chunkSize) {
    // Every serialiser is found before any value leaves the payload, so a refusal leaves it whole.
    std::vector<SerialiseFunction> functions;
    functions.reserve(payload.size());
    for (std::size_t i = 0; i < payload.size(); ++i) {
        const std::type_index type = payload.typeAt(i);
        functions.push_back(catalogue.findSerialiser(contentType, type));
        if (!functions.back()) {
            throw std::runtime_error("No serialiser registered for content type " + contentType + " and type " +
                                     core::typeName(type));
        }
    }
    std::vector<Serialiser> serialisers;
    serialisers.reserve(payload.size());
    for (std::size_t i = 0; i < payload.size(); ++i) {
        serialisers.emplace_back(payload.extract(i), std::move(functions[i]), chunkSize);
    }
    return serialisers;
}

}  // namespace agent::spf::serialisation
