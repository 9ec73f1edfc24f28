// Starting and stopping a native legacy service against a real directory is exercised end to
// end by legacy-agent's services (tests/e2e); here, a start that cannot enter the directory.

#include "agent/core/service/NativeLegacyServiceBase.h"

#include "agent/directory/DirectoryTestSupport.h"

#include <gtest/gtest.h>

namespace agent::core::service {
namespace {

using namespace directory::testing;

class Echo : public NativeLegacyServiceBase {
public:
    Echo() : NativeLegacyServiceBase("Echo", serviceutils::APIVersion(1, 2), {{"spf.wireFormat", "text"}}) {
        addMethod("echo", [](const transport::Message& m) { return m; });
    }
};

TEST(NativeLegacyServiceBaseTest, StartWithoutADirectoryFailsAndLeavesNothingBehind) {
    FakeExchange refusing(FakeExchange::Refusing);
    auto container = makeContainer(refusing.url());
    Echo echo;
    EXPECT_FALSE(echo.start({{}, container->createContext(container->generateServiceInstance())}));
    EXPECT_TRUE(echo.serviceInstance().is_nil());
    EXPECT_FALSE(Echo().start({}));  // an empty context has no transport
}

}  // namespace
}  // namespace agent::core::service
