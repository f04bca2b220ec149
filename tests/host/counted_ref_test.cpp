#include "host/counted_ref.h"

#include <gtest/gtest.h>

#include <utility>

#include "tests/support/scripted_host.h"

namespace {

class CountedRefTest : public ::testing::Test {
  protected:
    ScriptedHost host;
    ScriptedChannel& channel = host.makeChannel();
};

TEST_F(CountedRefTest, EveryReferenceIsGivenBackOnce) {
    CountedRef<HostChannel> first(&channel);
    CountedRef<HostChannel> second = first;
    EXPECT_EQ(channel.references(), 2);
    CountedRef<HostChannel> third = std::move(second);
    EXPECT_FALSE(second);  // NOLINT(bugprone-use-after-move): empty is what it must be
    EXPECT_EQ(channel.references(), 2);
    auto& same = third;
    third = same;
    first = third;
    EXPECT_EQ(channel.references(), 2);
    third = nullptr;
    EXPECT_EQ(channel.references(), 1);
    HostChannel* const raw = first.detach();
    EXPECT_EQ(channel.references(), 1);
    EXPECT_EQ(CountedRef<HostChannel>::adopt(raw).get(), raw);
}

TEST_F(CountedRefTest, OutGivesBackWhatItHeld) {
    auto& other = host.makeChannel({1});
    host.data.otherChannels = {&other};
    CountedRef<HostChannel> ref(&channel);
    const std::int32_t index = 1;
    EXPECT_EQ(host.data.findChannel(&index, 1, ref.out()), HostCode::success);
    EXPECT_EQ(ref.get(), &other);
    EXPECT_EQ(channel.references(), 0);
}

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
