#include "host/counted_ref.h"

#include "tests/support/scripted_host.h"

namespace {

struct FailsQueries final : Scripted<HostObject> {
    using Scripted::Scripted;
    HostResult queryInterface(const InterfaceId&, void**) override { return HostCode::outOfMemory; }
};

TEST(CountedRefTest, QueryLeavesNothingBehindWhenItFails) {
    ScriptedHost host;
    ScriptedChannel& channel = host.makeChannel();
    const CountedRef<HostChannel> ref(&channel);
    const CountedRef<HostObject> failing(&host.script.make<FailsQueries>());
    CountedRef<HostChannelExt> ext;
    EXPECT_EQ(ref.queryTo(ext), HostCode::success);
    EXPECT_EQ(ext.get(), &channel.ext);
    EXPECT_EQ(failing.queryTo(ext), HostCode::outOfMemory);
    EXPECT_FALSE(ext) << "the answer of an earlier query";
    EXPECT_EQ(hostCodeOf([&] { queryHost<HostChannelExt>(failing); }), HostCode::outOfMemory);
    EXPECT_FALSE(queryHost<HostElement>(ref));
    CountedRef<HostElement> element;
    EXPECT_EQ(ref.queryTo(element), HostCode::noInterface);
    EXPECT_EQ(CountedRef<HostChannel>().queryTo(element), HostCode::invalidPointer);
}

}  // namespace
