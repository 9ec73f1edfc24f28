#pragma once

#include <string>
#include <typeindex>

namespace agent::spf::core {

// The readable (demangled) name of a type, e.g. "std::vector<int, std::allocator<int> >",
// for error texts and logs. Thread-safe; throws only std::bad_alloc.
std::string typeName(std::type_index type);

}  // namespace agent::spf::core
