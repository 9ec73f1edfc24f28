#include "agent/spf/core/Invokable.h"

namespace agent::spf::core {

Invokable::~Invokable() = default;

bool Invokable::isInProcess() const { return true; }

}  // namespace agent::spf::core
