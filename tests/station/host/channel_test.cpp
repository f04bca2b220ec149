#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "host/host_error.h"
#include "station/host/station_channel.h"
#include "tests/station/host/stand_ins.h"
#include "tests/support/scripted_document.h"

namespace station {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class Channels : public testing::Test, protected ChannelSink {
  protected:
    void onSample(const ChannelSample& sample) override {
        samples.emplace_back(reinterpret_cast<const char*>(sample.data), sample.size);
        times.push_back(sample.time);
    }
    void makeAsync(std::int32_t type) {
        channel->setDataType(type);
        channel->setAsync(hostTrue);
    }
    std::int32_t bufferSize() { return hostValue(channel, &HostChannel::getBufferSize); }
    void write(std::int32_t number) { addSample(*channel, &number, sizeof number, number * 0.5); }
    void expectNumbers(std::int32_t first, std::int32_t last) {
        ASSERT_EQ(samples.size(), static_cast<std::size_t>(last - first + 1));
        for (std::int32_t number = first; number <= last; ++number) {
            std::int32_t read = -1;
            const auto i = static_cast<std::size_t>(number - first);
            std::memcpy(&read, samples[i].data(), sizeof read);
            ASSERT_EQ(read, number);
            ASSERT_EQ(times[i], number * 0.5);
        }
        samples.clear();
        times.clear();
    }

    CountedRef<StationChannel> channel =
        makeCounted<StationChannel>(std::vector<std::int32_t>{8, 0, 3}, ChannelEnvironment{});
    std::vector<std::string> samples;
    std::vector<double> times;
};

TEST_F(Channels, ElementsHaveTheSizeOfTheirTypeAndOtherTypesAreRefused) {
    const std::vector<std::pair<std::int32_t, std::int32_t>> sizes = {
        {0, 1}, {1, 1}, {2, 2}, {3, 2}, {4, 4},   {5, 4},
        {6, 8}, {7, 8}, {8, 4}, {9, 8}, {10, 16}, {14, 72}};
    for (const auto& [type, size] : sizes) {
        EXPECT_EQ(channel->setDataType(type), HostCode::success);
        EXPECT_EQ(hostValue(channel, &HostChannel::getElementSize), size) << type;
    }
    for (const std::int32_t type : {-1, 11, 13, 15}) {
        EXPECT_EQ(channel->setDataType(type), HostCode::invalidArgument);
        EXPECT_THAT(lastFailure(), HasSubstr(L"no data type"));
    }
}

TEST_F(Channels, RoomFollowsTheExpectedRateBetweenItsLimits) {
    makeAsync(4);
    EXPECT_EQ(bufferSize(), 65536 / 4);
    channel->setExpectedRate(50000.0F);
    EXPECT_EQ(bufferSize(), 100000);
    channel->setExpectedRate(3e38F);
    EXPECT_EQ(bufferSize(), (128 << 20) / (4 + 8));
    for (const float nonsense : {-1.0F, std::numeric_limits<float>::infinity(), std::nanf("")}) {
        EXPECT_EQ(channel->setExpectedRate(nonsense), HostCode::invalidArgument);
    }
}

TEST_F(Channels, EachSampleIsReadOnceAcrossManyWraps) {
    makeAsync(4);
    std::minstd_rand random(1);
    std::int32_t written = 0;
    while (written < 5 * bufferSize()) {
        const std::int32_t first = written;
        for (auto burst = random() % 9000; burst > 0; --burst) {
            write(written++);
        }
        channel->takeNew(*this);
        expectNumbers(first, written - 1);
    }
    EXPECT_EQ(channel->getOverruns(), 0U);
}

TEST_F(Channels, WhatTheWriterLapsIsCountedAndTheRestIsRead) {
    makeAsync(4);
    const std::int32_t size = bufferSize();
    for (std::int32_t number = 0; number < size + 7; ++number) {
        write(number);
    }
    EXPECT_EQ(channel->getOverruns(), 7U);
    channel->takeNew(*this);
    expectNumbers(7, size + 6);
    EXPECT_EQ(channel->getOverruns(), 7U);
    write(size + 7);
    channel->setExpectedRate(1e6F);  // moves the buffers
    write(0);
    EXPECT_EQ(channel->getOverruns(), 8U);
    EXPECT_EQ(channel->advanceWritePosition(-1), HostCode::invalidArgument);
    channel->beginMeasurement();
    EXPECT_EQ(channel->getOverruns(), 0U);
    EXPECT_EQ(channel->getWritten(), 0U);
}

TEST_F(Channels, AReaderThatIsCalledInTimeLosesNothingInAStall) {
    makeAsync(4);
    channel->setOnFull([this] { channel->takeNew(*this); });
    const std::int32_t last = 3 * bufferSize();
    for (std::int32_t number = 0; number <= last; ++number) {
        write(number);
    }
    channel->takeNew(*this);
    expectNumbers(0, last);
    channel->setDataType(StationChannel::variantType);
    constexpr int many = 40000;
    for (int i = 0; i < many; ++i) {
        ASSERT_EQ(addBytes(*channel, "some bytes " + std::to_string(i), i), HostCode::success);
    }
    channel->takeNew(*this);
    ASSERT_EQ(samples.size(), std::size_t{many});
    EXPECT_EQ(samples[many - 1], "some bytes 39999");
    EXPECT_EQ(channel->getOverruns(), 0U);
}

TEST_F(Channels, VariantsOfAllSizesComeBackOrAreCounted) {
    VariantRing ring;
    ring.allocate(8, 40);
    std::minstd_rand random(7);
    std::vector<std::string> kept;
    std::uint64_t read = 0;
    for (int i = 0; i < 20000; ++i) {
        const std::string text(random() % 41, static_cast<char>('a' + i % 26));
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
        const bool losesSome = ring.isFullFor(text.size());
        const std::uint64_t before = ring.getOverruns();
        ASSERT_TRUE(ring.add(bytes, text.size(), i));
        kept.push_back(text);
        ASSERT_EQ(losesSome, ring.getOverruns() != before);
        if (random() % 4 == 0) {
            samples.clear();
            ring.takeNew(*this);
            read += samples.size();
            ASSERT_LE(samples.size(), kept.size());
            kept.erase(kept.begin(), kept.end() - static_cast<std::ptrdiff_t>(samples.size()));
            ASSERT_EQ(samples, kept);
            kept.clear();
        }
    }
    ring.takeNew(*this);
    EXPECT_GT(ring.getOverruns(), 0U);
    EXPECT_GE(read + ring.getOverruns(), 20000U - 8U);
    EXPECT_FALSE(ring.add(nullptr, 41, 0.0));
}

TEST_F(Channels, OnlyByteArraysGoToVariantChannelsAndOnlyThere) {
    EXPECT_EQ(addBytes(*channel, "x", 0.0), HostCode::invalidArgument);
    channel->setDataType(StationChannel::variantType);
    EXPECT_EQ(channel->addVariantValue(0.0, HostVariant()), HostCode::invalidArgument);
    EXPECT_EQ(addBytes(*channel, std::string(100000, 'x'), 0.0), HostCode::outOfMemory);
    EXPECT_THAT(lastFailure(), HasSubstr(L"100000 bytes is too large"));
    EXPECT_EQ(addBytes(*channel, "x", 1.5), HostCode::success);
    channel->takeNew(*this);
    EXPECT_THAT(samples, ElementsAre("x"));
    EXPECT_THAT(times, ElementsAre(1.5));
}

TEST_F(Channels, SamplesWithoutTimesHaveTheirPlaceInTheAcquisition) {
    channel->setWriteOffset(500);
    double* noTimes = nullptr;
    channel->getTimeBuffer(&noTimes);
    EXPECT_EQ(noTimes, nullptr);
    const double value = 1.0;
    addSample(*channel, &value, sizeof value, 0.0);
    addSample(*channel, &value, sizeof value, 0.0);
    channel->takeNew(*this);
    EXPECT_THAT(times, ElementsAre(0.5, 0.501));
}

TEST_F(Channels, AnArrayTakesItsShapeWhenItIsCommitted) {
    channel->setDataType(3);
    channel->setIsArray(hostTrue);
    const auto info = hostObject(channel, &HostChannel::getArrayInfo);
    info->setDimensionCount(2);
    info->setDimensionSize(0, 3);
    info->setDimensionSize(1, 5);
    EXPECT_EQ(hostValue(channel, &HostChannel::getArraySize), 1);
    EXPECT_EQ(info->commitDimensions(), HostCode::success);
    EXPECT_EQ(hostValue(channel, &HostChannel::getArraySize), 15);
    const std::string sample(30, 's');
    addSample(*channel, sample.data(), sample.size(), 0.0);
    channel->takeNew(*this);
    EXPECT_THAT(samples, ElementsAre(sample));
    const auto axis = hostObject(info, &HostArrayInfo::getAxis, 1);
    EXPECT_EQ(axis->setNumericValue(4, 2.5), HostCode::success);
    EXPECT_EQ(axis->setNumericValue(5, 2.5), HostCode::invalidArgument);
    EXPECT_EQ(axis->setTextValue(-1, L"x"), HostCode::invalidArgument);
    info->setDimensionSize(0, 2000000000);
    EXPECT_EQ(info->commitDimensions(), HostCode::invalidArgument);
    EXPECT_EQ(hostValue(channel, &HostChannel::getArraySize), 15);
}

TEST_F(Channels, LabelsAndAttributesKeepApart) {
    const auto labels = hostObject(channel, &HostChannel::getValueList);
    for (const std::int32_t value : {1, 2, 3}) {
        hostObject(labels, &HostValueList::addItem)->setValue(value);
    }
    labels->removeItem(1);
    const auto second = hostObject(labels, &HostValueList::getItem, 1);
    EXPECT_EQ(hostValue(second, &HostValueItem::getValue), 3);
    EXPECT_EQ(labels->removeItem(2), HostCode::invalidArgument);

    CountedRef<HostChannelExt> ext;
    ASSERT_EQ(channel.queryTo(ext), HostCode::success);
    static_cast<HostChannel*>(channel.get())->setTextAttribute(L"one");
    ext->setTextAttribute(L"two");
    EXPECT_EQ(hostValue(channel, &HostChannel::getTextAttribute), L"one");
    EXPECT_EQ(channel->extText(), L"two");
    channel->setDoubleAttributeD(4.0);
    channel->setExtDoubleAttributeA(5.0);
    EXPECT_EQ(hostValue(channel, &HostChannel::getDoubleAttributeD), 4.0);
}

class StoredChannels : public Channels {
  protected:
    StoredChannels() {
        channel->setName(L"Gr\u00FC\u00DFe \U0001F697");
        channel->setUnit(L"\u00B0C");
        channel->setColor(0xFF7000);
        channel->setUsed(hostTrue);
        channel->setExpectedRate(0.1F);
    }
    HostResult persist(StationChannel& which, bool saving) {
        return which.persistSetup(&document, &element, toHostBool(saving));
    }

    CallScript script;
    ScriptedDocument& document = script.make<ScriptedDocument>(true);
    ScriptedElement& element = script.make<ScriptedElement>(L"Output");
};

TEST_F(StoredChannels, ComeBackWithAllThatTheUserSet) {
    EXPECT_EQ(persist(*channel, true), HostCode::success);
    EXPECT_EQ(persist(*channel, true), HostCode::success);
    const std::string saved = element.asText();
    ASSERT_EQ(element.children.size(), 1U) << "saved twice, kept twice";
    EXPECT_EQ(element.children[0]->find(L"Index")->text, L"8:0;3");

    const auto other =
        makeCounted<StationChannel>(std::vector<std::int32_t>{8, 0, 4}, ChannelEnvironment{});
    EXPECT_EQ(persist(*other, false), HostCode::success);
    EXPECT_THAT(other->indices(), ElementsAre(8, 0, 4));
    EXPECT_TRUE(other->used());
    EXPECT_EQ(hostValue(other, &HostChannel::getExpectedRate), 0.1F);
    other->setIndices(std::vector<std::int32_t>{3}.data(), 1);
    persist(*other, true);
    EXPECT_EQ(element.asText(), saved);
    EXPECT_THAT(script.referenceFaults(), IsEmpty());
}

TEST_F(StoredChannels, NonsenseIsRefusedWithItsNameAndChangesNothing) {
    for (const auto& [key, text] :
         std::vector<std::pair<std::wstring, std::wstring>>{{L"Color", L"red"},
                                                            {L"Used", L"perhaps"},
                                                            {L"ExpectedRate", L"1e99"},
                                                            {L"ExpectedRate", L"-5"},
                                                            {L"Color", L"12x"}}) {
        auto& saved = element.addNew(L"OutputChannel");
        saved.values = {{L"Name", L"other"}, {key, text}};
        EXPECT_LT(persist(*channel, false), 0) << text.size();
        EXPECT_NE(lastFailure(), L"");
        EXPECT_EQ(channel->name(), L"Gr\u00FC\u00DFe \U0001F697");
        EXPECT_TRUE(channel->used());
        element.ClearChildren();
    }
    EXPECT_EQ(persist(*channel, false), HostCode::success) << "nothing there, nothing changed";
    EXPECT_TRUE(channel->used());
}

TEST_F(StoredChannels, AFailingDocumentGivesItsCodeAtEachCall) {
    for (std::size_t number = 1; script.faultsMet() == number - 1; ++number) {
        script.forget();
        const std::size_t before = script.faultsMet();
        script.failCall(number, HostCode::aborted);
        const HostResult code = persist(*channel, true);
        EXPECT_EQ(code, script.faultsMet() == before ? HostCode::success : HostCode::aborted);
        script.heal();
    }
    EXPECT_GE(script.faultsMet(), 9U);
    EXPECT_EQ(persist(*channel, true), HostCode::success);
    EXPECT_THAT(script.referenceFaults(), IsEmpty());
}

}  // namespace
}  // namespace station
