#include "bridge/output/sample_bytes.h"
#include "host/host_error.h"
#include "station/host/station_channel.h"
#include "tests/station/host/stand_ins.h"
#include "tests/support/scripted_document.h"

namespace station {
namespace {

using Kestrova::Utils::Kcom::OutputChannel::SampleBytes;
using testing::ElementsAre;
using testing::IsEmpty;

class Channels : public testing::Test, protected ChannelSink {
  protected:
    void onSample(const ChannelSample& sample) override {
        samples.emplace_back(reinterpret_cast<const char*>(sample.data), sample.size);
        times.push_back(sample.time);
    }
    void write(std::int32_t number) { addSample(*channel, &number, sizeof number, number * 0.5); }

    CountedRef<StationChannel> channel =
        makeObject<StationChannel>(std::vector<std::int32_t>{8, 0, 3}, ChannelEnvironment{});
    std::vector<std::string> samples;
    std::vector<double> times;
};

TEST_F(Channels, WhatTheWriterLapsIsCountedAndTheRestIsRead) {
    channel->setDataType(4);
    channel->setAsync(hostTrue);
    const std::int32_t size = hostValue(channel, &HostChannel::getBufferSize);
    for (std::int32_t number = 0; number < size + 7; ++number) {
        write(number);
    }
    EXPECT_EQ(channel->getOverruns(), 7U);
    channel->takeNew(*this);
    ASSERT_EQ(samples.size(), static_cast<std::size_t>(size));
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const auto number = static_cast<std::int32_t>(i + 7);
        ASSERT_EQ(std::memcmp(samples[i].data(), &number, sizeof number), 0) << number;
        ASSERT_EQ(times[i], number * 0.5);
    }
    EXPECT_EQ(channel->getOverruns(), 7U);
    write(size + 7);
    channel->setExpectedRate(1e6F);  // moves the buffers
    EXPECT_LE(hostValue(channel, &HostChannel::getBufferSize), 1 << 20);
    EXPECT_EQ(channel->setExpectedRate(2e9F), HostCode::invalidArgument);
    write(0);
    EXPECT_EQ(channel->getOverruns(), 8U);
    EXPECT_EQ(channel->advanceWritePosition(-1), HostCode::invalidArgument);
    channel->claim();
    EXPECT_TRUE(channel->isClaimed());
    channel->beginMeasurement();
    EXPECT_FALSE(channel->isClaimed());
    EXPECT_EQ(channel->getOverruns(), 0U);
    EXPECT_EQ(channel->getWritten(), 0U);
}

TEST_F(Channels, AllTogetherHaveABoundedRoomThatComesBack) {
    ChannelEnvironment shared;
    shared.mostBufferBytes = std::size_t{20} << 20U;
    std::vector<CountedRef<StationChannel>> many;
    std::vector<std::int32_t> sizes;
    for (int i = 0; i < 10; ++i) {
        many.push_back(makeObject<StationChannel>(std::vector<std::int32_t>{8, 0, i}, shared));
        many.back()->setAsync(hostTrue);
        many.back()->setExpectedRate(1e6F);
        sizes.push_back(hostValue(many.back(), &HostChannel::getBufferSize));
    }
    EXPECT_TRUE(sizes[0] == sizes[1] && 0 < sizes[2] && sizes[2] <= sizes[1]);
    EXPECT_TRUE(0 < sizes[9] && sizes[9] < sizes[1] / 100) << sizes[9];
    EXPECT_LT(*shared.bufferBytes, std::size_t{21} << 20U);
    many.clear();
    EXPECT_EQ(*shared.bufferBytes, 0U);
}

TEST_F(Channels, AReaderThatIsCalledInTimeLosesNoVariantInAStall) {
    channel->setOnFull([this] { channel->takeNew(*this); });
    channel->setDataType(StationChannel::variantType);
    constexpr int many = 40000;
    for (int i = 0; i < many; ++i) {
        const std::string text = "some bytes " + std::to_string(i);
        const auto bytes = SampleBytes::make(text.data(), text.size());
        HostVariant value;
        value.type = HostVariantType::ByteArray;
        value.bytes = bytes.get();
        ASSERT_EQ(channel->addVariantValue(i, value), HostCode::success);
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

TEST_F(Channels, ComeBackWithAllThatTheUserSet) {
    CallScript script;
    auto& document = script.make<ScriptedDocument>(true);
    auto& element = script.make<ScriptedElement>(L"Output");
    const auto persist = [&](StationChannel& which, HostBool saving) {
        EXPECT_EQ(which.persistSetup(&document, &element, saving), HostCode::success);
    };
    channel->setName(L"Gr\u00FC\u00DFe \U0001F697");
    channel->setUnit(L"\u00B0C");
    channel->setColor(0xFF7000);
    channel->setUsed(hostTrue);
    channel->setExpectedRate(0.1F);
    persist(*channel, hostTrue);
    persist(*channel, hostTrue);
    const std::string saved = element.asText();
    ASSERT_EQ(element.children.size(), 1U) << "saved twice, kept twice";
    EXPECT_EQ(element.children[0]->find(L"Index")->text, L"8:0;3");

    const auto other =
        makeObject<StationChannel>(std::vector<std::int32_t>{8, 0, 4}, ChannelEnvironment{});
    persist(*other, hostFalse);
    EXPECT_THAT(other->getIndices(), ElementsAre(8, 0, 4));
    EXPECT_TRUE(other->isUsed());
    EXPECT_EQ(hostValue(other, &HostChannel::getExpectedRate), 0.1F);
    other->setIndices(std::vector<std::int32_t>{3}.data(), 1);
    persist(*other, hostTrue);
    EXPECT_EQ(element.asText(), saved);
    EXPECT_THAT(script.referenceFaults(), IsEmpty());
}

}  // namespace
}  // namespace station
