#pragma once

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/host_channel.h"
#include "host/host_variant.h"
#include "station/host/channel_details.h"
#include "station/host/sample_ring.h"

namespace station {

/// What all channels of a station have in common.
struct ChannelEnvironment {
    /// Room in a channel's buffers, in seconds at its expected rate; less than 2 counts as 2.
    double bufferSeconds = 2.0;
    double acquisitionRate = 1000.0;  ///< samples a second
    CountedRef<HostDocumentFactory> documentFactory;
};

/// The two text properties that have one name in the two interfaces of a channel.
class ChannelWithText : public HostChannel {
  public:
    HostResult getTextAttribute(std::wstring* result) override {
        *result = text;
        return HostCode::success;
    }
    HostResult setTextAttribute(const wchar_t* newText) override {
        text = textOf(newText);
        return HostCode::success;
    }

  protected:
    ~ChannelWithText() = default;

  private:
    std::wstring text;
};

class ChannelExtWithText : public HostChannelExt {
  public:
    HostResult setTextAttribute(const wchar_t* newText) override {
        text = textOf(newText);
        return HostCode::success;
    }
    const std::wstring& extText() const { return text; }

  protected:
    ~ChannelExtWithText() = default;

  private:
    std::wstring text;
};

/// A channel of the station: what the plug-in tells of it, and its buffers.
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
/// change. Their size is the room of the environment, 64 KiB at least and 128 MiB at most. A
/// channel of type 12 has no buffers to write into, but takes its samples by `addVariantValue`.
///
/// What was written is taken by `takeNew`, at the latest after each periodic call. Before a writer
/// laps that reader, `setOnFull` gives it an occasion to read in the middle of a call, so that a
/// host that was held up for a while loses nothing. Without it what was lapped counts as overrun.
///
/// Called on the host's thread.
class StationChannel final : public Counted<ChannelWithText, ChannelExtWithText> {
  public:
    static constexpr std::int32_t variantType = 12;
    static constexpr std::int32_t recordType = 14;
    static constexpr std::size_t recordSize = 72;

    StationChannel(std::vector<std::int32_t> channelIndices, ChannelEnvironment surroundings);

    // The host's side.

    const std::vector<std::int32_t>& indices() const { return place; }
    const std::wstring& name() const { return channelName; }
    std::int32_t dataType() const { return type; }
    bool used() const { return isUsedNow; }
    bool claimed() const { return isClaimed; }
    std::int64_t writeOffset() const { return offset; }

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

    HostResult getIndices(std::vector<std::int32_t>* result) override;
    HostResult setIndexFormat(std::int32_t format) override;
    HostResult setIndexCount(std::int32_t count) override;
    /// The indices behind the first two, which say whose channel it is and stay.
    HostResult setIndices(const std::int32_t* values, std::int32_t count) override;
    HostResult getDataType(std::int32_t* result) override;
    HostResult setDataType(std::int32_t newType) override;
    HostResult isAsync(HostBool* result) override;
    HostResult setAsync(HostBool newAsync) override;
    HostResult isSingleValue(HostBool* result) override;
    HostResult setSingleValue(HostBool newSingleValue) override;
    HostResult getChannelClass(std::int32_t* channelClass) override;
    HostResult getName(std::wstring* result) override;
    HostResult setName(const wchar_t* newName) override;
    HostResult getUnit(std::wstring* result) override;
    HostResult setUnit(const wchar_t* newUnit) override;
    HostResult getColor(std::uint32_t* result) override;
    HostResult setColor(std::uint32_t newColor) override;
    HostResult isUsed(HostBool* result) override;
    HostResult setUsed(HostBool newUsed) override;
    HostResult getExpectedRate(float* samplesPerSecond) override;
    HostResult setExpectedRate(float samplesPerSecond) override;
    HostResult getValueList(HostValueList** result) override;
    HostResult getPropertySet(HostPropertySet** result) override;
    /// The child "OutputChannel" of the element, with a child "Index" (the indices as text, 8:0;3)
    /// and the values "Name", "Unit", "Color", "Used" and "ExpectedRate". What isn't there when
    /// loading stays as it is; the index isn't loaded. A value that makes no sense is a failure
    /// that changes nothing.
    HostResult persistSetup(HostDocument* document, HostElement* element, HostBool saving) override;
    HostResult isArray(HostBool* result) override;
    HostResult setIsArray(HostBool newArray) override;
    HostResult getArrayInfo(HostArrayInfo** info) override;
    HostResult getArraySize(std::int32_t* elements) override;
    HostResult getDataBuffer(void** data) override;
    HostResult getTimeBuffer(double** times) override;
    HostResult getBufferSize(std::int32_t* samples) override;
    HostResult getElementSize(std::int32_t* bytes) override;
    HostResult getWritePosition(std::int32_t* position) override;
    HostResult advanceWritePosition(std::int32_t samples) override;
    HostResult getRateDivider(std::int32_t* divider) override;
    HostResult setWriteOffset(std::int64_t samples) override;
    HostResult addVariantValue(double seconds, const HostVariant& value) override;
    HostResult scaleValue(double raw, double* scaled) override;
    HostResult getScale(double* scale) override;
    HostResult getOffset(double* result) override;

    HostResult getTextAttributeB(std::wstring* result) override;
    HostResult getTextAttributeC(std::wstring* result) override;
    HostResult getBoolAttributeA(HostBool* flag) override;
    HostResult setBoolAttributeA(HostBool flag) override;
    HostResult getBoolAttributeB(HostBool* flag) override;
    HostResult setBoolAttributeB(HostBool flag) override;
    HostResult getDoubleAttributeA(double* value) override;
    HostResult setDoubleAttributeA(double value) override;
    HostResult getDoubleAttributeB(double* value) override;
    HostResult setDoubleAttributeB(double value) override;
    HostResult getDoubleAttributeC(double* value) override;
    HostResult setDoubleAttributeC(double value) override;
    HostResult getDoubleAttributeD(double* value) override;
    HostResult setDoubleAttributeD(double value) override;
    HostResult getIntAttributeA(std::int32_t* value) override;
    HostResult setIntAttributeA(std::int32_t value) override;
    HostResult getIntAttributeB(std::int32_t* value) override;
    HostResult setIntAttributeB(std::int32_t value) override;
    HostResult getIntAttributeC(std::int32_t* value) override;
    HostResult setScalarAttribute(double value) override;
    HostResult getBufferAttribute(std::uint32_t* value) override;
    HostResult setBufferAttribute(std::uint32_t value) override;

    // HostChannelExt

    HostResult claim() override;
    HostResult allocateBuffers(HostBool flag) override;
    HostResult releaseBuffers() override;
    HostResult getExtIntAttribute(std::int32_t* value) override;
    HostResult setExtIntAttribute(std::int32_t value) override;
    HostResult getExtDoubleAttributeA(double* value) override;
    HostResult setExtDoubleAttributeA(double value) override;
    HostResult getExtDoubleAttributeB(double* value) override;
    HostResult setExtDoubleAttributeB(double value) override;

  private:
    std::int32_t arrayElements() const;
    std::size_t sampleBytes() const;
    std::size_t samplesOfRoom() const;
    bool layoutMoved() const { return !allocated || seenVersion != arrayInfo->getVersion(); }
    void allocate();
    void ensureBuffers() {
        if (layoutMoved()) {
            allocate();
        }
    }
    void dropBuffers() { allocated = false; }
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
    bool isClaimed = false;
    float expectedRate = 0.0F;
    std::int64_t offset = 0;

    SampleRing ring;
    VariantRing variants;
    bool allocated = false;
    std::uint32_t seenVersion = 0;  ///< of the array's shape, when the buffers were made
    std::function<void()> onFull;

    /// What the host passes through and never looks at.
    std::array<bool, 2> flags = {};
    std::array<double, 6> doubles = {};
    std::array<std::int32_t, 3> ints = {};
    double scalar = 0.0;
    std::uint32_t bufferAttribute = 0;
};

/// Indices as text: the first, ":", the others separated by ";".
std::wstring toIndexText(const std::vector<std::int32_t>& indices);

}  // namespace station
