#include "host/host_error.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <exception>
#include <functional>
#include <type_traits>

#include "core/kvrt_exception.h"
#include "host/plugin.h"
#include "host/runtime.h"
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
    /// The explanation that a failed call of the channel brings, "none" without one.
    std::wstring explanation() {
        try {
            callHost(&channel, &HostChannel::setUsed, hostTrue);
        } catch (const HostCallException& error) {
            const auto& info = error.getErrorInfo();
            return info ? hostValue(info, &HostErrorInfo::getDescription) : L"none";
        }
        return L"no failure";
    }

    ScriptedHost host;
    ScriptedChannel& channel = host.makeChannel();
};

TEST_F(HostErrorTest, OnlyNegativeResultsAreFailures) {
    const CountedRef<HostChannel> ref(&channel);
    for (const HostResult good : {0, 1, 0x7FFFFFFF}) {
        checkHost(good, ref.get());
    }
    EXPECT_EQ(codeOf([&] { checkHost(-1, ref.get()); }), -1);
    host.script.failOperation("HostChannel::setColor", HostCode::outOfMemory);
    EXPECT_EQ(codeOf([&] { callHost(ref, &HostChannel::setColor, 1U); }), HostCode::outOfMemory);
}

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

TEST_F(HostErrorTest, ExplanationTravelsOnlyWhereTheObjectReportsIt) {
    host.script.failOperation("HostChannel::setUsed", HostCode::failed);
    host.errorSupport.info.description = L"in use";
    EXPECT_EQ(explanation(), L"none");
    channel.addPart<HostErrorSupport>(&host.errorSupport);
    host.errorSupport.reported = HostData::id;
    EXPECT_EQ(explanation(), L"none") << "it explains another interface";
    host.errorSupport.reported = HostChannel::id;
    EXPECT_EQ(explanation(), L"in use");
    host.script.failOperation("HostErrorSupport::takeErrorInfo", HostCode::failed);
    EXPECT_EQ(explanation(), L"none");
}

TEST(InterfaceIdTest, NoTwoInterfacesHaveTheSame) {
    const std::array ids = {HostObject::id,
                            HostVariantArray::id,
                            HostByteArray::id,
                            HostApp::id,
                            HostData::id,
                            HostChannelGroups::id,
                            HostPluginGroup::id,
                            HostChannelList::id,
                            HostChannel::id,
                            HostChannelExt::id,
                            HostAxisDisplay::id,
                            HostAxisInfo::id,
                            HostArrayInfo::id,
                            HostValueItem::id,
                            HostValueList::id,
                            HostPropertySet::id,
                            HostMasterClock::id,
                            HostGnssDevice::id,
                            HostGnssDeviceList::id,
                            HostGnssDeviceHandle::id,
                            HostGnssDeviceCollection::id,
                            HostElement::id,
                            HostDocument::id,
                            HostDocumentFactory::id,
                            HostErrorInfo::id,
                            HostErrorSupport::id,
                            RuntimeString::id,
                            RuntimeErrorInfo::id,
                            RuntimeLibrary::id,
                            HostDispatch::id,
                            IPlugin2::id,
                            IPlugin3::id,
                            IPlugin4::id,
                            HostClassFactory::id};
    for (const InterfaceId& each : ids) {
        EXPECT_EQ(std::count(ids.begin(), ids.end(), each), 1) << std::hex << each.data1;
    }
}

}  // namespace
