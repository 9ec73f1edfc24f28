#include "agent/spf/core/TypeName.h"

#include <boost/core/demangle.hpp>

namespace agent::spf::core {

std::string typeName(std::type_index type) {
    if (type == std::type_index(typeid(std::string))) {
        return "std::string";  // the demangled form spells out basic_string with its defaults
    }
    return boost::core::demangle(type.name());
}

}  // namespace agent::spf::core
