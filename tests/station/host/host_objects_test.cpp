#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "host/host_error.h"
#include "station/host/station_host.h"
#include "station/host/variant_array.h"
#include "tests/station/host/stand_ins.h"

namespace station {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class HostObjects : public testing::Test {
  protected:
    HostObjects() {
        StationHostOptions options;
        options.onError = [this](const std::string& text) { errors.push_back(text); };
        host = makeCounted<StationHost>(counter, options);
    }
    CountedRef<HostPluginGroup> group() {
        const auto data = hostObject(host, &HostApp::getData);
        const auto groups = hostObject(data, &HostData::getChannelGroups);
        const auto entry = hostObject(groups, &HostChannelGroups::getGroup, 8);
        return queryHost<HostPluginGroup>(entry);
    }
    CountedRef<HostChannel> mount(std::int32_t index) {
        return hostObject(group(), &HostPluginGroup::mountChannels, L"{id}", 1, &index);
    }

    StillCounter counter;
    std::vector<std::string> errors;
    CountedRef<StationHost> host;
};

TEST_F(HostObjects, AChannelIsMountedOnceAndFoundByItsIndices) {
    const auto channel = mount(7);
    EXPECT_EQ(mount(7), channel);
    mount(8);
    const auto indices = hostValue(channel, &HostChannel::getIndices);
    const auto data = hostObject(host, &HostApp::getData);
    const auto count = static_cast<std::int32_t>(indices.size());
    EXPECT_EQ(hostObject(data, &HostData::findChannel, indices.data(), count), channel);
    EXPECT_EQ(group()->unmountChannel(channel.get()), HostCode::success);
    EXPECT_FALSE(hostObject(data, &HostData::findChannel, indices.data(), count));
    EXPECT_EQ(group()->unmountChannel(channel.get()), HostCode::invalidArgument);
    EXPECT_EQ(host->channels().all().size(), 1U);
}

TEST_F(HostObjects, AFailureExplainsItself) {
    const auto channel = mount(0);
    try {
        callHost(channel, &HostChannel::setDataType, 99);
        FAIL();
    } catch (const HostCallException& failure) {
        ASSERT_TRUE(failure.getErrorInfo());
        EXPECT_THAT(hostValue(failure.getErrorInfo(), &HostErrorInfo::getDescription),
                    HasSubstr(L"no data type 99"));
    }
    EXPECT_THROW(hostObject(host, &HostApp::getDocumentFactory), HostCallException);
    const auto properties = hostObject(channel, &HostChannel::getPropertySet);
    EXPECT_THROW(hostObject(properties, &HostPropertySet::addItem, L"a"), HostCallException);
}

TEST_F(HostObjects, OneObjectIsOneWhicheverInterfaceIsAsked) {
    const auto channel = mount(0);
    CountedRef<HostChannelExt> ext;
    CountedRef<HostObject> fromChannel;
    CountedRef<HostObject> fromExt;
    CountedRef<HostData> none;
    ASSERT_EQ(channel.queryTo(ext), HostCode::success);
    channel.queryTo(fromChannel);
    ext.queryTo(fromExt);
    EXPECT_EQ(fromChannel, fromExt);
    EXPECT_EQ(channel.queryTo(none), HostCode::noInterface);
}

TEST_F(HostObjects, TextsForTheUserReachTheSink) {
    host->writeError(L"too old \u2013 sorry");
    EXPECT_THAT(errors, ElementsAre("too old \xE2\x80\x93 sorry"));
    EXPECT_GE(hostValue(host, &HostApp::isSetupMode), 0);
    host->setSetupMode(true);
    EXPECT_EQ(hostValue(host, &HostApp::isSetupMode), hostTrue);
    std::int32_t unused = 0;
    std::int32_t major = 0;
    std::int32_t minor = -1;
    host->getVersion(&unused, &major, &minor, &unused, &unused);
    EXPECT_EQ(major, 4);
    EXPECT_EQ(minor, 0);
}

TEST_F(HostObjects, ThePositionStandsStillUntilItIsMoved) {
    MasterClock& clock = host->clock();
    counter.pass(3.0);
    EXPECT_EQ(clock.getSeconds(), 0.0);
    clock.start();
    counter.pass(70.0005);
    EXPECT_EQ(clock.getPosition(), 0);
    EXPECT_DOUBLE_EQ(clock.getSeconds(), 70.0005);
    clock.movePosition();
    EXPECT_EQ(clock.getPositionInBuffer(), 70000 - 65536);
    EXPECT_EQ(clock.getWrapCount(), 1);
    clock.startNextPart(69.0);
    EXPECT_EQ(clock.getPosition(), 0);
    EXPECT_NEAR(clock.getSeconds(), 1.0005, 1e-9);
    clock.stop();
    counter.pass(5.0);
    EXPECT_NEAR(clock.getSeconds(), 1.0005, 1e-9);
}

TEST_F(HostObjects, ANewPartIsAskedForBeforeThePositionLeaves32Bits) {
    for (const double rate : {1000.0, 1e6}) {
        const auto clock = makeCounted<MasterClock>(counter, rate);
        const auto data =
            makeCounted<StationData>(clock, makeCounted<ChannelList>(ChannelEnvironment{}));
        clock->start();
        counter.pass(2147483647.0 / rate - 301.0);
        clock->movePosition();
        EXPECT_FALSE(clock->needsNewPart()) << rate;
        counter.pass(2.0);
        clock->movePosition();
        EXPECT_TRUE(clock->needsNewPart()) << rate;
        counter.pass(1e7);
        clock->movePosition();
        std::int32_t size = 0;
        std::int32_t position = 0;
        data->getBufferState(&size, &position);
        const std::int64_t sum =
            std::int64_t{hostValue(data, &HostData::getWrapCount)} * size + position;
        EXPECT_EQ(sum, 2147483647) << rate;
    }
    for (const double nonsense : {0.0, -1.0, 2e6, std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_THROW(makeCounted<MasterClock>(counter, nonsense), std::invalid_argument);
    }
}

TEST_F(HostObjects, TheStartTimeSurvivesItsDayCount) {
    using std::chrono::nanoseconds;
    StationData& data = host->data();
    data.setStart(StationData::SystemClock::time_point(nanoseconds(1769860800123456000)));
    double days = 0.0;
    data.getStartTime(&days);
    EXPECT_NEAR(days, 46053.5, 1e-5);
    EXPECT_EQ(data.setStartTime(days), HostCode::success);
    EXPECT_NEAR(static_cast<double>(data.getStartNanoseconds() - 1769860800123456000), 0.0, 1000.0);
    for (const double nonsense : {0.0, 1e6, std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_EQ(data.setStartTime(nonsense), HostCode::invalidArgument);
    }
    EXPECT_EQ(hostValue(CountedRef<StationData>(&data), &HostData::getStartTime), days);
}

class Clocks : public HostObjects {
  protected:
    Clocks() {
        device = hostObject(CountedRef<GnssDeviceList>(&host->gnssDevices()),
                            &HostGnssDeviceList::createDevice);
        device->setDefaultSyncMode(12);
        device->addSyncMode(12);
        device->addSyncMode(2);
    }
    HostResult attach(const wchar_t* name, HostGnssDevice* which) {
        return hostObject(CountedRef<GnssDeviceCollection>(&host->gnssPlaces()),
                          &HostGnssDeviceCollection::open, name)
            ->attach(which);
    }
    std::int32_t mode() { return hostValue(device, &HostGnssDevice::getSyncMode); }

    CountedRef<HostGnssDevice> device;
};

TEST_F(Clocks, TheUsersChoiceReachesItsDeviceAndNoOther) {
    EXPECT_EQ(mode(), 2);
    host->gnssPlaces().choose(L"Front", {12, true});
    host->gnssPlaces().choose(L"Fornt", {12, false});
    EXPECT_EQ(attach(L"Rear", device.get()), HostCode::success);
    EXPECT_EQ(mode(), 2);
    EXPECT_EQ(attach(L"Front", device.get()), HostCode::success);
    EXPECT_EQ(mode(), 12);
    EXPECT_EQ(hostValue(device, &HostGnssDevice::getClockSource), hostTrue);
    EXPECT_THAT(host->gnssPlaces().getChoicesWithoutDevice(), ElementsAre(L"Fornt"));
}

TEST_F(Clocks, WhatCannotBeAttachedIsRefused) {
    host->gnssPlaces().choose(L"Front", {7, false});
    EXPECT_EQ(attach(L"Front", device.get()), HostCode::invalidArgument);
    EXPECT_THAT(lastFailure(), HasSubstr(L"\"Front\" has no sync mode 7"));
    EXPECT_EQ(attach(L"Front", nullptr), HostCode::invalidArgument);
    EXPECT_EQ(mode(), 2);
}

TEST(VariantArrays, ACopyKeepsWhatItsElementsReferTo) {
    CountedRef<HostVariantArray> copy;
    HostVariant element;
    {
        const auto array = makeCounted<VariantArray>();
        const auto object = makeCounted<Bytes>("x");
        array->addObject(static_cast<HostByteArray*>(object.get()))
            .addBoolean(true)
            .addText(L"a text that has to be copied");
        ASSERT_EQ(array->copy(copy.out()), HostCode::success);
    }
    std::int32_t first = -1;
    std::int32_t last = -1;
    copy->getBounds(&first, &last);
    EXPECT_EQ(first, 0);
    EXPECT_EQ(last, 2);
    copy->getElement(0, &element);
    CountedRef<HostByteArray> bytes;
    EXPECT_EQ(CountedRef<HostObject>(element.object).queryTo(bytes), HostCode::success);
    copy->getElement(1, &element);
    EXPECT_EQ(element.boolean, 65535);
    copy->getElement(2, &element);
    EXPECT_STREQ(element.text, L"a text that has to be copied");
    EXPECT_EQ(copy->getElement(3, &element), HostCode::invalidArgument);
    EXPECT_EQ(copy->getElement(-1, &element), HostCode::invalidArgument);
}

}  // namespace
}  // namespace station
