#include "host/counted_ref.h"

#include "tests/support/scripted_host.h"

namespace {

class CountedRefTest : public ::testing::Test {
  protected:
    ScriptedHost host;
    ScriptedChannel& channel = host.makeChannel();
};

TEST_F(CountedRefTest, QueryLeavesNothingBehindWhenItFails) {
    const CountedRef<HostChannel> ref(&channel);
    CountedRef<HostChannelExt> ext;
    EXPECT_EQ(ref.queryTo(ext), HostCode::success);
    EXPECT_EQ(ext.get(), &channel.ext);
    host.script.failOperation("HostChannel::queryInterface", HostCode::outOfMemory);
    EXPECT_EQ(ref.queryTo(ext), HostCode::outOfMemory);
    EXPECT_FALSE(ext) << "the answer of an earlier query";
    EXPECT_EQ(hostCodeOf([&] { queryHost<HostChannelExt>(ref); }), HostCode::outOfMemory);
    host.script.heal();
    EXPECT_FALSE(queryHost<HostElement>(ref));
    CountedRef<HostElement> element;
    EXPECT_EQ(ref.queryTo(element), HostCode::noInterface);
    EXPECT_EQ(CountedRef<HostChannel>().queryTo(element), HostCode::invalidPointer);
}

}  // namespace
