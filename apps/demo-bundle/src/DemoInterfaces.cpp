#include "DemoInterfaces.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <numeric>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace spfdemo {

using agent::spf::core::APIVersion;
using agent::spf::core::ServiceInterface;

ServiceInterface calculator() {
    ServiceInterface calculator("demo.Calculator", APIVersion(1, 0));
    calculator.addMethod("add", [](std::int64_t a, std::int64_t b) { return a + b; })
        .addMethod("divide",
                   [](double dividend, double divisor) {
                       if (divisor == 0) {
                           throw std::invalid_argument("Division by zero");
                       }
                       return dividend / divisor;
                   })
        .addMethod("sum", [](std::vector<std::int64_t> values) {
            return std::accumulate(values.begin(), values.end(), std::int64_t{0});
        });
    return calculator;
}

ServiceInterface text() {
    ServiceInterface text("demo.Text", APIVersion(1, 0));
    text.addMethod("upper",
                   [](std::string value) {
                       std::transform(value.begin(), value.end(), value.begin(),
                                      [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
                       return value;
                   })
        .addMethod("words",
                   [](std::string value) {
                       std::istringstream in(value);
                       std::vector<std::string> words;
                       for (std::string word; in >> word;) {
                           words.push_back(word);
                       }
                       return words;
                   })
        .addMethod("length", [](std::string value) { return static_cast<std::int32_t>(value.size()); });
    return text;
}

}  // namespace spfdemo
