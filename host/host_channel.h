#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/host_object.h"

class HostArrayInfo;
class HostDocument;
class HostElement;
class HostPropertySet;
class HostValueList;
struct HostVariant;

/// One channel of the host: its description, which the user sees and can change, and its buffers.
///
/// A sample is `getArraySize` elements of `getElementSize` bytes. The channel has room for
/// `getBufferSize` samples, one after the other, and for as many times, one double each, in seconds
/// since the start of the measurement. The plug-in writes a sample at the write position and then
/// advances it; the host reads behind it. Numbered attributes are passed through: their meaning is
/// the host's.
///
/// Called on the host's thread, but for the buffer queries of a channel that is read, which worker
/// threads may call while the host's thread waits for them.
class HostChannel : public HostObject {
  public:
    static constexpr InterfaceId id{
        0xA469F1C6, 0x097A, 0x4BEC, {0xB8, 0x55, 0x98, 0xE2, 0xF2, 0xCC, 0x29, 0xDB}};

    /// The place of the channel in the host's tree of channels; what `HostData::findChannel` takes.
    virtual HostResult getIndices(std::vector<std::int32_t>* indices) = 0;
    virtual HostResult setIndexFormat(std::int32_t format) = 0;
    virtual HostResult setIndexCount(std::int32_t count) = 0;
    virtual HostResult setIndices(const std::int32_t* indices, std::int32_t count) = 0;

    /// The type of an element: 0 to 10 are numbers, 12 and 14 records.
    virtual HostResult getDataType(std::int32_t* dataType) = 0;
    virtual HostResult setDataType(std::int32_t dataType) = 0;
    /// Whether samples have times of their own and come at any rate.
    virtual HostResult isAsync(HostBool* async) = 0;
    virtual HostResult setAsync(HostBool async) = 0;
    /// Whether there is one value for the whole measurement.
    virtual HostResult isSingleValue(HostBool* singleValue) = 0;
    virtual HostResult setSingleValue(HostBool singleValue) = 0;
    virtual HostResult getChannelClass(std::int32_t* channelClass) = 0;

    virtual HostResult getName(std::wstring* name) = 0;
    virtual HostResult setName(const wchar_t* name) = 0;
    virtual HostResult getUnit(std::wstring* unit) = 0;
    virtual HostResult setUnit(const wchar_t* unit) = 0;
    /// 0x00RRGGBB.
    virtual HostResult getColor(std::uint32_t* color) = 0;
    virtual HostResult setColor(std::uint32_t color) = 0;
    /// Whether the user wants the channel's data.
    virtual HostResult isUsed(HostBool* used) = 0;
    virtual HostResult setUsed(HostBool used) = 0;
    /// Samples per second for which the host makes room.
    virtual HostResult getExpectedRate(float* samplesPerSecond) = 0;
    virtual HostResult setExpectedRate(float samplesPerSecond) = 0;
    virtual HostResult getValueList(HostValueList** labels) = 0;
    virtual HostResult getPropertySet(HostPropertySet** properties) = 0;
    /// Keeps the channel's description in that element, or takes it from there.
    virtual HostResult persistSetup(HostDocument* document, HostElement* element,
                                    HostBool saving) = 0;

    virtual HostResult isArray(HostBool* array) = 0;
    virtual HostResult setIsArray(HostBool array) = 0;
    virtual HostResult getArrayInfo(HostArrayInfo** info) = 0;
    /// Elements in one sample, 1 for a channel that is no array.
    virtual HostResult getArraySize(std::int32_t* elements) = 0;

    /// Start of the samples.
    virtual HostResult getDataBuffer(void** data) = 0;
    /// Start of the times; null for a channel that isn't asynchronous.
    virtual HostResult getTimeBuffer(double** times) = 0;
    /// Samples.
    virtual HostResult getBufferSize(std::int32_t* samples) = 0;
    /// Bytes of one element.
    virtual HostResult getElementSize(std::int32_t* bytes) = 0;
    /// The place of the next sample, always inside the buffers.
    virtual HostResult getWritePosition(std::int32_t* position) = 0;
    /// Commits samples; wraps at the end of the buffers.
    virtual HostResult advanceWritePosition(std::int32_t samples) = 0;
    /// Samples of the acquisition per sample of this channel, 1 or more.
    virtual HostResult getRateDivider(std::int32_t* divider) = 0;
    /// By how many samples of the acquisition the channel lags behind it.
    virtual HostResult setWriteOffset(std::int64_t samples) = 0;
    /// Adds one sample of any size at that time; `value` holds a byte array.
    virtual HostResult addVariantValue(double seconds, const HostVariant& value) = 0;
    /// Turns a raw value into what the host shows.
    virtual HostResult scaleValue(double raw, double* scaled) = 0;
    /// The line of `scaleValue`: scaled = raw times scale, plus offset.
    virtual HostResult getScale(double* scale) = 0;
    virtual HostResult getOffset(double* offset) = 0;

    virtual HostResult getTextAttribute(std::wstring* text) = 0;
    virtual HostResult setTextAttribute(const wchar_t* text) = 0;
    virtual HostResult getTextAttributeB(std::wstring* text) = 0;
    virtual HostResult getTextAttributeC(std::wstring* text) = 0;
    virtual HostResult getBoolAttributeA(HostBool* flag) = 0;
    virtual HostResult setBoolAttributeA(HostBool flag) = 0;
    virtual HostResult getBoolAttributeB(HostBool* flag) = 0;
    virtual HostResult setBoolAttributeB(HostBool flag) = 0;
    virtual HostResult getDoubleAttributeA(double* value) = 0;
    virtual HostResult setDoubleAttributeA(double value) = 0;
    virtual HostResult getDoubleAttributeB(double* value) = 0;
    virtual HostResult setDoubleAttributeB(double value) = 0;
    virtual HostResult getDoubleAttributeC(double* value) = 0;
    virtual HostResult setDoubleAttributeC(double value) = 0;
    virtual HostResult getDoubleAttributeD(double* value) = 0;
    virtual HostResult setDoubleAttributeD(double value) = 0;
    virtual HostResult getIntAttributeA(std::int32_t* value) = 0;
    virtual HostResult setIntAttributeA(std::int32_t value) = 0;
    virtual HostResult getIntAttributeB(std::int32_t* value) = 0;
    virtual HostResult setIntAttributeB(std::int32_t value) = 0;
    virtual HostResult getIntAttributeC(std::int32_t* value) = 0;
    virtual HostResult setScalarAttribute(double value) = 0;
    /// A change of it, as of the expected rate, may move the buffers.
    virtual HostResult getBufferAttribute(std::uint32_t* value) = 0;
    virtual HostResult setBufferAttribute(std::uint32_t value) = 0;

  protected:
    ~HostChannel() = default;
};

/// Further operations of a channel, reached by a query on its `HostChannel`.
class HostChannelExt : public HostObject {
  public:
    static constexpr InterfaceId id{
        0xD3FAC327, 0x2F5C, 0x4B90, {0x93, 0x83, 0xA6, 0xE4, 0x27, 0xA2, 0xB2, 0x05}};

    /// Says that the plug-in fills this channel in the coming measurement.
    virtual HostResult claim() = 0;
    /// After this the buffers of `HostChannel` are there. The plug-in always passes true.
    virtual HostResult allocateBuffers(HostBool flag) = 0;
    virtual HostResult releaseBuffers() = 0;
    virtual HostResult setTextAttribute(const wchar_t* text) = 0;
    virtual HostResult getExtIntAttribute(std::int32_t* value) = 0;
    virtual HostResult setExtIntAttribute(std::int32_t value) = 0;
    virtual HostResult getExtDoubleAttributeA(double* value) = 0;
    virtual HostResult setExtDoubleAttributeA(double value) = 0;
    virtual HostResult getExtDoubleAttributeB(double* value) = 0;
    virtual HostResult setExtDoubleAttributeB(double value) = 0;

  protected:
    ~HostChannelExt() = default;
};

/// How the axis of an array is shown, beside its values.
class HostAxisDisplay : public HostObject {
  public:
    static constexpr InterfaceId id{
        0xE823EE39, 0x2FBA, 0x4633, {0xBA, 0x74, 0x47, 0xA2, 0xD8, 0xBF, 0x6B, 0xD4}};

    virtual HostResult setValue(std::int32_t value) = 0;
    virtual HostResult setFlag(HostBool flag) = 0;

  protected:
    ~HostAxisDisplay() = default;
};

/// One axis of an array channel. Positions go from 0 up to the size of its dimension.
class HostAxisInfo : public HostObject {
  public:
    static constexpr InterfaceId id{
        0x6441CAAC, 0x968D, 0x46E8, {0x96, 0xF2, 0xA9, 0xD5, 0xE9, 0x0B, 0x71, 0x8F}};

    /// 0 texts, 1 numbers, 2 a line through `setStart` with `setStep`.
    virtual HostResult setAxisType(std::int32_t type) = 0;
    virtual HostResult setLabelA(const wchar_t* label) = 0;
    virtual HostResult setLabelB(const wchar_t* label) = 0;
    virtual HostResult setStyle(std::int32_t style) = 0;
    virtual HostResult setStart(double start) = 0;
    virtual HostResult setStep(double step) = 0;
    virtual HostResult setNumericValue(std::int32_t position, double value) = 0;
    virtual HostResult setTextValue(std::int32_t position, const wchar_t* text) = 0;
    virtual HostResult getDisplay(HostAxisDisplay** display) = 0;

  protected:
    ~HostAxisInfo() = default;
};

/// The shape of an array channel. Dimensions are counted from 0.
class HostArrayInfo : public HostObject {
  public:
    static constexpr InterfaceId id{
        0x7BEE2934, 0x7AF4, 0x4C28, {0x92, 0x30, 0x22, 0x39, 0xC7, 0x5D, 0x90, 0xB9}};

    virtual HostResult setFlag(HostBool flag) = 0;
    virtual HostResult getDimensionCount(std::int32_t* count) = 0;
    virtual HostResult setDimensionCount(std::int32_t count) = 0;
    virtual HostResult getDimensionSize(std::int32_t dimension, std::int32_t* elements) = 0;
    virtual HostResult setDimensionSize(std::int32_t dimension, std::int32_t elements) = 0;
    /// Makes the sizes valid: only then the axes are there.
    virtual HostResult commitDimensions() = 0;
    virtual HostResult getAxis(std::int32_t dimension, HostAxisInfo** axis) = 0;

  protected:
    ~HostArrayInfo() = default;
};

/// The text and the colour (0x00RRGGBB) that stand for one value of a channel.
class HostValueItem : public HostObject {
  public:
    static constexpr InterfaceId id{
        0x840E2A4B, 0xC279, 0x44D7, {0xBD, 0x71, 0x6E, 0xEF, 0xEB, 0x37, 0x84, 0x46}};

    virtual HostResult getValue(std::int32_t* value) = 0;
    virtual HostResult setValue(std::int32_t value) = 0;
    virtual HostResult getText(std::wstring* text) = 0;
    virtual HostResult setText(const wchar_t* text) = 0;
    virtual HostResult getColor(std::int32_t* color) = 0;
    virtual HostResult setColor(std::int32_t color) = 0;

  protected:
    ~HostValueItem() = default;
};

/// The labels of a channel's values, in the user's order.
class HostValueList : public HostObject {
  public:
    static constexpr InterfaceId id{
        0x10147839, 0x3E92, 0x4009, {0x81, 0xD5, 0x66, 0x3B, 0xBB, 0x65, 0x84, 0x48}};

    virtual HostResult getCount(std::int32_t* count) = 0;
    virtual HostResult getItem(std::int32_t position, HostValueItem** item) = 0;
    /// Appends a label with value 0 and no text.
    virtual HostResult addItem(HostValueItem** item) = 0;
    virtual HostResult removeItem(std::int32_t position) = 0;

  protected:
    ~HostValueList() = default;
};

/// Documents that belong to a channel, by name.
class HostPropertySet : public HostObject {
  public:
    static constexpr InterfaceId id{
        0x03A256DC, 0x2FC6, 0x426A, {0x8E, 0xAE, 0x9F, 0xDB, 0xFE, 0x25, 0x9B, 0xB3}};

    /// Null for a name that isn't there.
    virtual HostResult getItem(const wchar_t* name, HostDocument** document) = 0;
    virtual HostResult addItem(const wchar_t* name, HostDocument** document) = 0;

  protected:
    ~HostPropertySet() = default;
};
