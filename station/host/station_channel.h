#pragma once

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/host_channel.h"
#include "host/host_variant.h"
#include "station/host/bit_rates.h"
#include "station/host/channel_details.h"
#include "station/host/sample_ring.h"

namespace station {

/// What all channels of a station have in common.
struct ChannelEnvironment {
    double acquisitionRate = 1000.0;  ///< samples a second
    CountedRef<HostDocumentFactory> documentFactory;
    /// How often one of them has got other indices.
    std::shared_ptr<std::uint64_t> moves = std::make_shared<std::uint64_t>(0);
    /// Bytes in the buffers of all of them, and how many these may be before another one gets the
    /// least room.
    std::size_t mostBufferBytes = std::size_t{1} << 30U;
    std::shared_ptr<std::size_t> bufferBytes = std::make_shared<std::size_t>(0);
};

/// An interface of a channel with its text attribute, an operation that two of them have.
template <typename Interface>
class WithText : public Interface {
  public:
    HostResult setTextAttribute(const wchar_t* newText) override {
        return put(textAttribute, textOf(newText));
    }

  protected:
    ~WithText() = default;

    std::wstring textAttribute;
};

/// A channel of the station: what the plug-in says of it, and its buffers.
///
/// The host's data type codes:
///
/// | Code | A sample                | Code | A sample                 |
/// |------|-------------------------|------|--------------------------|
/// | 0    | unsigned 8-bit          | 7    | 64-bit float             |
/// | 1    | signed 8-bit            | 8    | unsigned 32-bit          |
/// | 2    | signed 16-bit           | 9    | two 32-bit floats        |
/// | 3    | unsigned 16-bit         | 10   | two 64-bit floats        |
/// | 4    | signed 32-bit           | 12   | bytes, any number        |
/// | 5    | 32-bit float            | 14   | record of 72 bytes       |
/// | 6    | signed 64-bit           |      |                          |
///
/// The buffers are there when they are first asked for and move when type, shape or expected rate
/// change. Their size is 2 seconds at the expected rate, 64 KiB at least and 8 MiB at most; all
/// channels together have 1 GiB, and who comes when that is used up gets the least. A channel of
/// type 12 has no buffers to write into, but takes its samples by `addVariantValue`.
///
/// What was written is taken by `takeNew`, at the latest after each periodic call. Before a writer
/// laps that reader, `setOnFull` gives it an occasion to read in the middle of a call, so that a
/// host that was held up for a while loses nothing. Without it what was lapped counts as overrun.
///
/// Called on the host's thread.
class StationChannel final : public Counted<WithText<HostChannel>, WithText<HostChannelExt>> {
  public:
    /// Of the two classes that count as active, the one for channels that a plug-in fills.
    static constexpr std::int32_t pluginChannelClass = 1;
    static constexpr std::int32_t variantType = 12;
    static constexpr std::int32_t recordType = 14;
    static constexpr std::size_t recordSize = 72;

    StationChannel(std::vector<std::int32_t> channelIndices, ChannelEnvironment surroundings);
    ~StationChannel() override;

    // The host's side.

    const std::vector<std::int32_t>& getIndices() const { return place; }
    const std::wstring& name() const { return channelName; }
    std::int32_t getDataType() const { return type; }
    bool isUsed() const { return isUsedNow; }
    bool isClaimed() const { return claimed; }
    /// Files that say what its messages mean, as the user named them: the plug-in knows nothing of
    /// them.
    const std::vector<std::wstring>& getDatabases() const { return databases; }
    void setDatabases(std::vector<std::wstring> paths) { databases = std::move(paths); }
    /// Of the bus, as far as the user has named them; the plug-in knows nothing of them either.
    const BitRates& getBitRates() const { return bitRates; }
    void setBitRates(const BitRates& rates) { bitRates = rates; }

    /// Gives the sink what was written since the last call, oldest first. The sample of a channel
    /// without times has the time of its position in the acquisition.
    void takeNew(ChannelSink& sink);
    /// Called when the next sample would overwrite one that wasn't read.
    void setOnFull(std::function<void()> callback) { onFull = std::move(callback); }
    /// Samples since `beginMeasurement`, and how many of them were overwritten before they were
    /// read.
    std::uint64_t getWritten() const { return ring.getWritten() + variants.getWritten(); }
    std::uint64_t getOverruns() const { return ring.getOverruns() + variants.getOverruns(); }
    /// Makes the buffers ready and empties them.
    void beginMeasurement();

    // HostChannel

    HostResult getIndices(std::vector<std::int32_t>* to) override { return give(to, place); }
    HostResult setIndexFormat(std::int32_t) override { return HostCode::success; }
    HostResult setIndexCount(std::int32_t) override { return HostCode::success; }
    /// The indices behind the first two, which say whose channel it is and stay.
    HostResult setIndices(const std::int32_t* values, std::int32_t count) override;
    HostResult getDataType(std::int32_t* to) override { return give(to, type); }
    HostResult setDataType(std::int32_t newType) override;
    HostResult isAsync(HostBool* to) override { return give(to, toHostBool(async)); }
    HostResult setAsync(HostBool newAsync) override { return putLayout(async, isTrue(newAsync)); }
    HostResult isSingleValue(HostBool* to) override { return give(to, toHostBool(singleValue)); }
    HostResult setSingleValue(HostBool flag) override { return put(singleValue, isTrue(flag)); }
    HostResult getChannelClass(std::int32_t* to) override { return give(to, pluginChannelClass); }
    HostResult getName(std::wstring* to) override { return give(to, channelName); }
    HostResult setName(const wchar_t* text) override { return put(channelName, textOf(text)); }
    HostResult getUnit(std::wstring* to) override { return give(to, unit); }
    HostResult setUnit(const wchar_t* text) override { return put(unit, textOf(text)); }
    HostResult getColor(std::uint32_t* to) override { return give(to, color); }
    HostResult setColor(std::uint32_t newColor) override { return put(color, newColor); }
    HostResult isUsed(HostBool* to) override { return give(to, toHostBool(isUsedNow)); }
    HostResult setUsed(HostBool newUsed) override { return put(isUsedNow, isTrue(newUsed)); }
    HostResult getExpectedRate(float* to) override { return give(to, expectedRate); }
    HostResult setExpectedRate(float samplesPerSecond) override;
    HostResult getValueList(HostValueList** to) override { return handOver(valueList, to); }
    HostResult getPropertySet(HostPropertySet** to) override { return handOver(propertySet, to); }
    /// The child "OutputChannel" of the element, with a child "Index" (the indices as text, 8:0;3)
    /// a child "Database" for each of the databases, and the values "Name", "Unit", "Color", "Used"
    /// and "ExpectedRate", where they are known "BitRate" and "DataBitRate". Of these what isn't
    /// there when loading stays as it is; the index isn't loaded. A value that makes no sense is a
    /// failure that changes nothing.
    HostResult persistSetup(HostDocument* document, HostElement* element, HostBool saving) override;
    HostResult isArray(HostBool* to) override { return give(to, toHostBool(array)); }
    HostResult setIsArray(HostBool newArray) override { return putLayout(array, isTrue(newArray)); }
    HostResult getArrayInfo(HostArrayInfo** to) override { return handOver(arrayInfo, to); }
    HostResult getArraySize(std::int32_t* to) override { return give(to, arrayElements()); }
    HostResult getDataBuffer(void** to) override {
        return giveOfBuffers(to, [&] { return ring.getData(); });
    }
    HostResult getTimeBuffer(double** to) override {
        return giveOfBuffers(to, [&] { return ring.getTimes(); });
    }
    HostResult getBufferSize(std::int32_t* samples) override {
        return giveOfBuffers(samples, [&] {
            return static_cast<std::int32_t>(ring.getSize() + variants.getSize());
        });
    }
    HostResult getElementSize(std::int32_t* bytes) override;
    HostResult getWritePosition(std::int32_t* position) override {
        return giveOfBuffers(position,
                             [&] { return static_cast<std::int32_t>(ring.getWritePosition()); });
    }
    HostResult advanceWritePosition(std::int32_t samples) override;
    HostResult getRateDivider(std::int32_t* to) override { return give(to, 1); }
    HostResult setWriteOffset(std::int64_t samples) override { return put(offset, samples); }
    HostResult addVariantValue(double seconds, const HostVariant& value) override;
    HostResult scaleValue(double raw, double* to) override { return give(to, raw); }
    HostResult getScale(double* to) override { return give(to, 1.0); }
    HostResult getOffset(double* to) override { return give(to, 0.0); }

    HostResult getTextAttribute(std::wstring* to) override {
        return give(to, WithText<HostChannel>::textAttribute);
    }
    HostResult getTextAttributeB(std::wstring* to) override { return give(to, std::wstring()); }
    HostResult getTextAttributeC(std::wstring* to) override { return give(to, std::wstring()); }
    HostResult getBoolAttributeA(HostBool* to) override { return give(to, toHostBool(flags[0])); }
    HostResult setBoolAttributeA(HostBool flag) override { return put(flags[0], isTrue(flag)); }
    HostResult getBoolAttributeB(HostBool* to) override { return give(to, toHostBool(flags[1])); }
    HostResult setBoolAttributeB(HostBool flag) override { return put(flags[1], isTrue(flag)); }
    HostResult getDoubleAttributeA(double* to) override { return give(to, doubles[0]); }
    HostResult setDoubleAttributeA(double value) override { return put(doubles[0], value); }
    HostResult getDoubleAttributeB(double* to) override { return give(to, doubles[1]); }
    HostResult setDoubleAttributeB(double value) override { return put(doubles[1], value); }
    HostResult getDoubleAttributeC(double* to) override { return give(to, doubles[2]); }
    HostResult setDoubleAttributeC(double value) override { return put(doubles[2], value); }
    HostResult getDoubleAttributeD(double* to) override { return give(to, doubles[3]); }
    HostResult setDoubleAttributeD(double value) override { return put(doubles[3], value); }
    HostResult getIntAttributeA(std::int32_t* to) override { return give(to, ints[0]); }
    HostResult setIntAttributeA(std::int32_t value) override { return put(ints[0], value); }
    HostResult getIntAttributeB(std::int32_t* to) override { return give(to, ints[1]); }
    HostResult setIntAttributeB(std::int32_t value) override { return put(ints[1], value); }
    HostResult getIntAttributeC(std::int32_t* to) override { return give(to, 0); }
    HostResult setScalarAttribute(double) override { return HostCode::success; }
    HostResult getBufferAttribute(std::uint32_t* to) override { return give(to, bufferAttribute); }
    HostResult setBufferAttribute(std::uint32_t value) override {
        return put(bufferAttribute, value);
    }

    // HostChannelExt

    HostResult claim() override { return put(claimed, true); }
    HostResult allocateBuffers(HostBool) override;
    HostResult releaseBuffers() override;
    HostResult getExtIntAttribute(std::int32_t* to) override { return give(to, ints[2]); }
    HostResult setExtIntAttribute(std::int32_t value) override { return put(ints[2], value); }
    HostResult getExtDoubleAttributeA(double* to) override { return give(to, doubles[4]); }
    HostResult setExtDoubleAttributeA(double value) override { return put(doubles[4], value); }
    HostResult getExtDoubleAttributeB(double* to) override { return give(to, doubles[5]); }
    HostResult setExtDoubleAttributeB(double value) override { return put(doubles[5], value); }

  private:
    std::int32_t arrayElements() const;
    std::size_t sampleBytes() const;
    std::size_t roomOfSample() const;
    std::size_t samplesOfRoom() const;
    bool hasLayoutMoved() const { return !allocated || seenVersion != arrayInfo->getVersion(); }
    void allocate();
    void giveRoomBack();
    void ensureBuffers() {
        if (hasLayoutMoved()) {
            allocate();
        }
    }
    template <typename T, typename Getter>
    HostResult giveOfBuffers(T* result, const Getter& getter) {
        return guarded([&] {
            ensureBuffers();
            return give(result, getter());
        });
    }
    /// Keeps what the layout of the buffers depends on.
    template <typename T>
    HostResult putLayout(T& field, T value) {
        allocated = allocated && field == value;
        return put(field, value);
    }
    HostResult save(HostDocument* document, HostElement* element) const;
    HostResult load(HostDocument* document, HostElement* element);

    const ChannelEnvironment environment;
    const CountedRef<ArrayInfo> arrayInfo;
    const CountedRef<ValueList> valueList;
    const CountedRef<PropertySet> propertySet;

    std::vector<std::int32_t> place;
    std::int32_t type = 7;
    bool async = false;
    bool singleValue = false;
    bool array = false;
    std::wstring channelName;
    std::wstring unit;
    std::uint32_t color = 0;
    bool isUsedNow = false;
    bool claimed = false;
    float expectedRate = 0.0F;
    std::int64_t offset = 0;
    std::vector<std::wstring> databases;
    BitRates bitRates;

    SampleRing ring;
    VariantRing variants;
    bool allocated = false;
    std::size_t ownBytes = 0;       ///< of `environment.bufferBytes`
    std::uint32_t seenVersion = 0;  ///< of the array's shape, when the buffers were made
    std::function<void()> onFull;

    /// What the host passes through and never looks at.
    std::array<bool, 2> flags = {};
    std::array<double, 6> doubles = {};
    std::array<std::int32_t, 3> ints = {};
    std::uint32_t bufferAttribute = 0;
};

}  // namespace station
