#pragma once

#include "agent/spf/core/ExportedCallbackReference.h"
#include "agent/spf/core/ExportedStreamReference.h"

#include <boost/uuid/uuid.hpp>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace agent::spf::serialisation::detail {

template <class S, class Visit>
void visitWithCollections(Visit& visit) {
    visit(static_cast<S*>(nullptr));
    visit(static_cast<std::vector<S>*>(nullptr));
    visit(static_cast<std::map<std::string, S>*>(nullptr));
    visit(static_cast<std::optional<S>*>(nullptr));
}

// Calls visit(static_cast<T*>(nullptr)) for each type registerAvroTypes registers: the
// registration and avroTypeName's table read this one list.
template <class Visit>
void forEachBuiltInAvroType(Visit&& visit) {
    visitWithCollections<bool>(visit);
    visitWithCollections<std::int32_t>(visit);
    visitWithCollections<std::int64_t>(visit);
    visitWithCollections<float>(visit);
    visitWithCollections<double>(visit);
    visitWithCollections<std::string>(visit);
    visitWithCollections<std::vector<std::uint8_t>>(visit);
    visitWithCollections<boost::uuids::uuid>(visit);
    visit(static_cast<std::vector<std::map<std::string, std::string>>*>(nullptr));
    visit(static_cast<core::ExportedCallbackReference*>(nullptr));
    visit(static_cast<core::ExportedStreamReference*>(nullptr));
}

}  // namespace agent::spf::serialisation::detail
