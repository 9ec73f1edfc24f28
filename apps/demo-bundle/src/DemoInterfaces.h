#pragma once

#include "agent/spf/core/ServiceInterface.h"

namespace spfdemo {

// "demo.Calculator" 1.0: add(long, long) -> long, divide(double, double) -> double (a zero
// divisor fails with "Division by zero"), sum(array<long>) -> long.
agent::spf::core::ServiceInterface calculator();

// "demo.Text" 1.0: upper(string) -> string, words(string) -> array<string>, length(string) -> int.
agent::spf::core::ServiceInterface text();

}  // namespace spfdemo
