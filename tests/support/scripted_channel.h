#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/host_channel.h"
#include "tests/support/scripted_document.h"
#include "tests/support/scripted_object.h"

class ScriptedValueItem final : public Scripted<HostValueItem> {
  public:
    explicit ScriptedValueItem(CallScript& callScript) : Scripted(callScript, "HostValueItem") {}

    SCRIPTED_PROPERTY(HostValueItem, Value, std::int32_t, std::int32_t, number)
    SCRIPTED_PROPERTY(HostValueItem, Text, std::wstring, const wchar_t*, text)
    SCRIPTED_PROPERTY(HostValueItem, Color, std::int32_t, std::int32_t, color)

    std::int32_t number = 0;
    std::wstring text;
    std::int32_t color = 0;
};

class ScriptedValueList final : public Scripted<HostValueList> {
  public:
    explicit ScriptedValueList(CallScript& callScript) : Scripted(callScript, "HostValueList") {}

    HostResult getCount(std::int32_t* number) override;
    HostResult getItem(std::int32_t position, HostValueItem** item) override;
    HostResult addItem(HostValueItem** item) override;
    HostResult removeItem(std::int32_t position) override;

    std::vector<ScriptedValueItem*> items;
};

class ScriptedAxisDisplay final : public Scripted<HostAxisDisplay> {
  public:
    explicit ScriptedAxisDisplay(CallScript& callScript)
        : Scripted(callScript, "HostAxisDisplay") {}

    SCRIPTED_WRITER(HostAxisDisplay, setValue, std::int32_t, number)
    SCRIPTED_WRITER(HostAxisDisplay, setFlag, HostBool, flag)

    std::int32_t number = -1;
    HostBool flag = hostFalse;
};

class ScriptedAxisInfo final : public Scripted<HostAxisInfo> {
  public:
    explicit ScriptedAxisInfo(CallScript& callScript)
        : Scripted(callScript, "HostAxisInfo"), display(callScript) {}

    SCRIPTED_WRITER(HostAxisInfo, setAxisType, std::int32_t, type)
    SCRIPTED_WRITER(HostAxisInfo, setLabelA, const wchar_t*, labelA)
    SCRIPTED_WRITER(HostAxisInfo, setLabelB, const wchar_t*, labelB)
    SCRIPTED_WRITER(HostAxisInfo, setStyle, std::int32_t, style)
    SCRIPTED_WRITER(HostAxisInfo, setStart, double, start)
    SCRIPTED_WRITER(HostAxisInfo, setStep, double, step)
    HostResult setNumericValue(std::int32_t position, double value) override;
    HostResult setTextValue(std::int32_t position, const wchar_t* text) override;
    HostResult getDisplay(HostAxisDisplay** out) override;

    std::int32_t type = -1;
    std::wstring labelA;
    std::wstring labelB;
    std::int32_t style = -1;
    double start = 0.0;
    double step = 0.0;
    std::map<std::int32_t, double> numbers;
    std::map<std::int32_t, std::wstring> texts;
    ScriptedAxisDisplay display;
};

class ScriptedArrayInfo final : public Scripted<HostArrayInfo> {
  public:
    explicit ScriptedArrayInfo(CallScript& callScript) : Scripted(callScript, "HostArrayInfo") {}

    SCRIPTED_WRITER(HostArrayInfo, setFlag, HostBool, flag)
    HostResult getDimensionCount(std::int32_t* number) override;
    HostResult setDimensionCount(std::int32_t number) override;
    HostResult getDimensionSize(std::int32_t dimension, std::int32_t* elements) override;
    HostResult setDimensionSize(std::int32_t dimension, std::int32_t elements) override;
    HostResult commitDimensions() override;
    HostResult getAxis(std::int32_t dimension, HostAxisInfo** axis) override;

    HostBool flag = hostFalse;
    std::vector<std::int32_t> sizes;
    std::vector<ScriptedAxisInfo*> axes;  ///< one for each dimension, made by the commit
};

class ScriptedPropertySet final : public Scripted<HostPropertySet> {
  public:
    explicit ScriptedPropertySet(CallScript& callScript)
        : Scripted(callScript, "HostPropertySet") {}

    HostResult getItem(const wchar_t* name, HostDocument** document) override;
    HostResult addItem(const wchar_t* name, HostDocument** document) override;

    std::map<std::wstring, ScriptedDocument*> documents;
};

class ScriptedChannelExt final : public Scripted<HostChannelExt> {
  public:
    explicit ScriptedChannelExt(CallScript& callScript) : Scripted(callScript, "HostChannelExt") {}

    HostResult claim() override { return call("HostChannelExt::claim"); }
    HostResult allocateBuffers(HostBool flag) override {
        return call("HostChannelExt::allocateBuffers", flag);
    }
    HostResult releaseBuffers() override { return call("HostChannelExt::releaseBuffers"); }
    SCRIPTED_WRITER(HostChannelExt, setTextAttribute, const wchar_t*, text)
    SCRIPTED_PROPERTY(HostChannelExt, ExtIntAttribute, std::int32_t, std::int32_t, number)
    SCRIPTED_PROPERTY(HostChannelExt, ExtDoubleAttributeA, double, double, doubleA)
    SCRIPTED_PROPERTY(HostChannelExt, ExtDoubleAttributeB, double, double, doubleB)

    std::wstring text;
    std::int32_t number = 0;
    double doubleA = 0.0;
    double doubleB = 0.0;
};

/// A channel with buffers of `bufferSize` samples, which are there whether they were allocated or
/// not and grow with the sizes that a test sets. `persistSetup` keeps name, unit and colour as
/// values of a child "OutputChannel", which also has a child "Index" with the indices as text; it
/// does so behind the list of calls.
class ScriptedChannel final : public Scripted<HostChannel> {
  public:
    explicit ScriptedChannel(CallScript& callScript,
                             std::vector<std::int32_t> indicesOfChannel = {});

    HostResult getIndices(std::vector<std::int32_t>* value) override;
    SCRIPTED_WRITER(HostChannel, setIndexFormat, std::int32_t, indexFormat)
    SCRIPTED_WRITER(HostChannel, setIndexCount, std::int32_t, indexCount)
    HostResult setIndices(const std::int32_t* values, std::int32_t number) override;

    SCRIPTED_READER(HostChannel, getDataType, std::int32_t, dataType)
    /// Also sets `elementSize` for the types whose size is known.
    HostResult setDataType(std::int32_t type) override;
    SCRIPTED_FLAG(HostChannel, Async, async)
    SCRIPTED_FLAG(HostChannel, SingleValue, singleValue)
    SCRIPTED_READER(HostChannel, getChannelClass, std::int32_t, channelClass)

    SCRIPTED_PROPERTY(HostChannel, Name, std::wstring, const wchar_t*, name)
    SCRIPTED_PROPERTY(HostChannel, Unit, std::wstring, const wchar_t*, unit)
    SCRIPTED_PROPERTY(HostChannel, Color, std::uint32_t, std::uint32_t, color)
    SCRIPTED_FLAG(HostChannel, Used, used)
    SCRIPTED_PROPERTY(HostChannel, ExpectedRate, float, float, expectedRate)
    HostResult getValueList(HostValueList** list) override;
    HostResult getPropertySet(HostPropertySet** set) override;
    HostResult persistSetup(HostDocument* document, HostElement* element, HostBool saving) override;

    SCRIPTED_READER(HostChannel, isArray, HostBool, array)
    SCRIPTED_WRITER(HostChannel, setIsArray, HostBool, array)
    HostResult getArrayInfo(HostArrayInfo** info) override;
    SCRIPTED_READER(HostChannel, getArraySize, std::int32_t, arraySize)

    HostResult getDataBuffer(void** start) override;
    HostResult getTimeBuffer(double** start) override;
    SCRIPTED_READER(HostChannel, getBufferSize, std::int32_t, bufferSize)
    SCRIPTED_READER(HostChannel, getElementSize, std::int32_t, elementSize)
    SCRIPTED_READER(HostChannel, getWritePosition, std::int32_t, writePosition)
    HostResult advanceWritePosition(std::int32_t samples) override;
    SCRIPTED_READER(HostChannel, getRateDivider, std::int32_t, rateDivider)
    SCRIPTED_WRITER(HostChannel, setWriteOffset, std::int64_t, writeOffset)
    HostResult addVariantValue(double seconds, const HostVariant& value) override;
    HostResult scaleValue(double raw, double* scaled) override;
    SCRIPTED_READER(HostChannel, getScale, double, scale)
    SCRIPTED_READER(HostChannel, getOffset, double, offset)

    SCRIPTED_PROPERTY(HostChannel, TextAttribute, std::wstring, const wchar_t*, textAttribute)
    SCRIPTED_READER(HostChannel, getTextAttributeB, std::wstring, textAttributeB)
    SCRIPTED_READER(HostChannel, getTextAttributeC, std::wstring, textAttributeC)
    SCRIPTED_PROPERTY(HostChannel, BoolAttributeA, HostBool, HostBool, boolAttributeA)
    SCRIPTED_PROPERTY(HostChannel, BoolAttributeB, HostBool, HostBool, boolAttributeB)
    SCRIPTED_PROPERTY(HostChannel, DoubleAttributeA, double, double, doubleAttributeA)
    SCRIPTED_PROPERTY(HostChannel, DoubleAttributeB, double, double, doubleAttributeB)
    SCRIPTED_PROPERTY(HostChannel, DoubleAttributeC, double, double, doubleAttributeC)
    SCRIPTED_PROPERTY(HostChannel, DoubleAttributeD, double, double, doubleAttributeD)
    SCRIPTED_PROPERTY(HostChannel, IntAttributeA, std::int32_t, std::int32_t, intAttributeA)
    SCRIPTED_PROPERTY(HostChannel, IntAttributeB, std::int32_t, std::int32_t, intAttributeB)
    SCRIPTED_READER(HostChannel, getIntAttributeC, std::int32_t, intAttributeC)
    SCRIPTED_WRITER(HostChannel, setScalarAttribute, double, scalarAttribute)
    SCRIPTED_PROPERTY(HostChannel, BufferAttribute, std::uint32_t, std::uint32_t, bufferAttribute)

    /// The bytes of the sample at that position.
    std::vector<std::uint8_t> sampleAt(std::int32_t position);
    double timeAt(std::int32_t position);

    std::vector<std::int32_t> indices;
    std::int32_t indexFormat = 0;
    std::int32_t indexCount = 0;
    std::int32_t dataType = 0;
    HostBool async = hostFalse;
    HostBool singleValue = hostFalse;
    std::int32_t channelClass = 1;
    std::wstring name;
    std::wstring unit;
    std::uint32_t color = 0;
    HostBool used = hostFalse;
    float expectedRate = 0.0F;
    HostBool array = hostFalse;
    std::int32_t arraySize = 1;
    std::int32_t bufferSize = 16;
    std::int32_t elementSize = 1;
    std::int32_t writePosition = 0;
    std::int32_t rateDivider = 1;
    std::int64_t writeOffset = 0;
    double scale = 1.0;
    double offset = 0.0;
    std::vector<std::pair<double, std::vector<std::uint8_t>>> variantSamples;  ///< time and bytes

    std::wstring textAttribute;
    std::wstring textAttributeB;
    std::wstring textAttributeC;
    HostBool boolAttributeA = hostFalse;
    HostBool boolAttributeB = hostFalse;
    double doubleAttributeA = 0.0;
    double doubleAttributeB = 0.0;
    double doubleAttributeC = 0.0;
    double doubleAttributeD = 0.0;
    std::int32_t intAttributeA = 0;
    std::int32_t intAttributeB = 0;
    std::int32_t intAttributeC = 0;
    double scalarAttribute = 0.0;
    std::uint32_t bufferAttribute = 0;

    ScriptedChannelExt ext;
    ScriptedArrayInfo arrayInfo;
    ScriptedValueList valueList;
    ScriptedPropertySet propertySet;

  private:
    std::size_t sampleBytes() const;
    /// Gives the buffers the size that the fields tell.
    void fitBuffers();
    std::wstring indicesAsText() const;

    std::vector<std::uint8_t> data;
    std::vector<double> times;
};
