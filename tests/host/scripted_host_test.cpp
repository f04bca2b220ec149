#include "tests/support/scripted_host.h"

#include <gtest/gtest.h>

#include "host/host_error.h"

namespace {

TEST(ScriptedHostTest, NullIsMetOnlyWhereAnObjectIsHandedOver) {
    ScriptedHost host;
    for (std::size_t number = 1; number <= 2; ++number) {
        host.script.nullCall(number);
        const auto data = hostObject(&host.app, &HostApp::getData);
        EXPECT_EQ(bool(data), number == 2);
        EXPECT_EQ(host.app.writeError(L"\x00FC"), HostCode::success);
        host.script.heal();
    }
    EXPECT_EQ(host.script.faultsMet(), 1U);
    EXPECT_EQ(host.script.calls().back(), "HostApp::writeError(\"\xC3\xBC\")");
}

}  // namespace
