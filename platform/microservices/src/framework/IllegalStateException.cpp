#include "cppmicroservices/IllegalStateException.h"

namespace cppmicroservices
{
    IllegalStateException::~IllegalStateException() = default;
} // namespace cppmicroservices
