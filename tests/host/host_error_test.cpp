#include "host/host_error.h"

#include <gmock/gmock.h>

#include <exception>
#include <functional>
#include <type_traits>

#include "tests/support/scripted_host.h"

namespace {

using ::testing::IsEmpty;

static_assert(!std::is_base_of_v<std::exception, HostCallException>);
static_assert(!std::is_base_of_v<std::exception, HostArrayException>);

class HostErrorTest : public ::testing::Test {
  protected:
    ~HostErrorTest() override { EXPECT_THAT(host.script.referenceFaults(), IsEmpty()); }

    /// The code that comes out of it as a `HostCallException`, 0 if nothing does.
    static HostResult codeOf(const std::function<void()>& action) {
        try {
            action();
        } catch (const HostCallException& error) {
            return error.getCode();
        }
        return HostCode::success;
    }

    ScriptedHost host;
};

TEST_F(HostErrorTest, MissingObjectRaisesItsCode) {
    const CountedRef<HostData> none;
    HostChannel* const noChannel = nullptr;
    EXPECT_EQ(codeOf([&] { hostValue(none, &HostData::getSampleRate); }), HostCode::invalidPointer);
    EXPECT_EQ(codeOf([&] { callHost(noChannel, &HostChannel::setColor, 1U); }),
              HostCode::invalidPointer);
    host.script.nullOperation("HostApp::getData");
    const auto data = hostObject(&host.app, &HostApp::getData);
    EXPECT_FALSE(data);
    EXPECT_EQ(codeOf([&] { requireObject(data); }), HostCode::invalidPointer);
}

TEST_F(HostErrorTest, ValuesAndObjectsComeOutOfCallsWithArguments) {
    host.data.sampleRate = 500.0;
    const auto data = hostObject(&host.app, &HostApp::getData);
    EXPECT_EQ(hostValue(data, &HostData::getSampleRate), 500.0);
    const auto group =
        hostObject(hostObject(data, &HostData::getChannelGroups), &HostChannelGroups::getGroup, 8);
    EXPECT_EQ(queryHost<HostPluginGroup>(group).get(), &host.groupOfPlugins);
    EXPECT_FALSE(queryHost<HostElement>(group));
    host.script.failOperation("HostPluginGroup::queryInterface", HostCode::failed);
    EXPECT_EQ(codeOf([&] { queryHost<HostPluginGroup>(group); }), HostCode::failed);
}

}  // namespace
