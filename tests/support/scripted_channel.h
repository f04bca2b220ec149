#pragma once

#include <cstddef>

#include "host/host_channel.h"
#include "host/host_variant.h"
#include "tests/support/scripted_document.h"
#include "tests/support/scripted_object.h"

class ScriptedAxisDisplay final : public Scripted<HostAxisDisplay> {
  public:
    using Scripted::Scripted;

    SCRIPTED_TAKE(setValue, std::int32_t)
    SCRIPTED_TAKE(setFlag, HostBool)
};

class ScriptedAxisInfo final : public Scripted<HostAxisInfo> {
  public:
    using Scripted::Scripted;

    SCRIPTED_TAKE(setAxisType, std::int32_t)
    SCRIPTED_TAKE(setLabelA, const wchar_t*)
    SCRIPTED_TAKE(setLabelB, const wchar_t*)
    SCRIPTED_TAKE(setStyle, std::int32_t)
    SCRIPTED_TAKE(setStart, double)
    SCRIPTED_TAKE(setStep, double)
    HostResult setNumericValue(std::int32_t position, double value) override {
        return call({"setNumericValue", position, value});
    }
    HostResult setTextValue(std::int32_t position, const wchar_t* text) override {
        return call({"setTextValue", position, text});
    }
    SCRIPTED_OBJECT(getDisplay, HostAxisDisplay, &display)

  private:
    ScriptedAxisDisplay& display = script.make<ScriptedAxisDisplay>();
};

/// The axes are one object: the list of calls tells which of them was asked for.
class ScriptedArrayInfo final : public Scripted<HostArrayInfo> {
  public:
    using Scripted::Scripted;

    SCRIPTED_TAKE(setFlag, HostBool)
    SCRIPTED_ATTRIBUTE(DimensionCount, std::int32_t, std::int32_t)
    HostResult getDimensionSize(std::int32_t dimension, std::int32_t* elements) override {
        return get({"getDimensionSize", dimension}, elements, sizes[dimension]);
    }
    HostResult setDimensionSize(std::int32_t dimension, std::int32_t elements) override {
        sizes[dimension] = elements;
        return call({"setDimensionSize", dimension, elements});
    }
    SCRIPTED_CALL(commitDimensions)
    HostResult getAxis(std::int32_t dimension, HostAxisInfo** out) override {
        return hand({"getAxis", dimension}, out, [&] { return &axis; });
    }

  private:
    std::map<std::int32_t, std::int32_t> sizes;
    ScriptedAxisInfo& axis = script.make<ScriptedAxisInfo>();
};

/// Has no documents.
class ScriptedPropertySet final : public Scripted<HostPropertySet> {
  public:
    using Scripted::Scripted;

    HostResult getItem(const wchar_t* name, HostDocument** document) override {
        return hand({"getItem", name}, document, [] { return nullptr; });
    }
    HostResult addItem(const wchar_t* name, HostDocument** document) override {
        return hand({"addItem", name}, document, [] { return nullptr; });
    }
};

class ScriptedChannelExt final : public Scripted<HostChannelExt> {
  public:
    using Scripted::Scripted;

    SCRIPTED_CALL(claim)
    SCRIPTED_TAKE(allocateBuffers, HostBool)
    SCRIPTED_CALL(releaseBuffers)
    SCRIPTED_TAKE(setTextAttribute, const wchar_t*)
    SCRIPTED_ATTRIBUTE(ExtIntAttribute, std::int32_t, std::int32_t)
    SCRIPTED_ATTRIBUTE(ExtDoubleAttributeA, double, double)
    SCRIPTED_ATTRIBUTE(ExtDoubleAttributeB, double, double)
};

/// A channel with buffers of `bufferSize` samples, which are there whether they were allocated or
/// not and grow with the sizes that a test sets. It has no value labels. `persistSetup` keeps name,
/// unit and colour as values of a child "OutputChannel", which also has a child "Index" with the
/// indices as text; it does so behind the list of calls.
class ScriptedChannel final : public Scripted<HostChannel> {
  public:
    explicit ScriptedChannel(CallScript& callScript,
                             std::vector<std::int32_t> indicesOfChannel = {})
        : Scripted(callScript), indices(std::move(indicesOfChannel)) {}

    HostResult queryInterface(const InterfaceId& interfaceId, void** result) override {
        return interfaceId == HostChannelExt::id ? ext.queryInterface(interfaceId, result)
                                                 : Scripted::queryInterface(interfaceId, result);
    }
    SCRIPTED_READER(getIndices, std::vector<std::int32_t>, indices)
    SCRIPTED_TAKE(setIndexFormat, std::int32_t)
    SCRIPTED_TAKE(setIndexCount, std::int32_t)
    HostResult setIndices(const std::int32_t* values, std::int32_t number) override {
        const std::vector<std::int32_t> given(values, values + number);
        return set("setIndices", indices, given);
    }

    SCRIPTED_READ(getDataType, std::int32_t, dataType, 0)
    /// Also sets `elementSize` for the one record of a known size, CAN frames.
    HostResult setDataType(std::int32_t type) override {
        static constexpr std::int32_t canFrame = 14;
        elementSize = type == canFrame ? 72 : elementSize;
        return set("setDataType", dataType, type);
    }
    SCRIPTED_FLAG(Async, async)
    SCRIPTED_FLAG(SingleValue, singleValue)
    SCRIPTED_READ(getChannelClass, std::int32_t, channelClass, 1)

    SCRIPTED_PROPERTY(Name, std::wstring, const wchar_t*, name, L"")
    SCRIPTED_PROPERTY(Unit, std::wstring, const wchar_t*, unit, L"")
    SCRIPTED_PROPERTY(Color, std::uint32_t, std::uint32_t, color, 0)
    SCRIPTED_FLAG(Used, used)
    SCRIPTED_ATTRIBUTE(ExpectedRate, float, float)
    SCRIPTED_OBJECT(getValueList, HostValueList, nullptr)
    SCRIPTED_OBJECT(getPropertySet, HostPropertySet, &propertySet)
    HostResult persistSetup(HostDocument* document, HostElement* element,
                            HostBool saving) override {
        auto& place = dynamic_cast<ScriptedElement&>(*element);
        return act({"persistSetup", document, element, saving}, [&] {
            if (isTrue(saving)) {
                auto& own = place.addNew(L"OutputChannel");
                own.values = {{L"Name", name}, {L"Unit", unit}, {L"Color", std::to_wstring(color)}};
                own.addNew(L"Index", indicesAsText());
            } else if (auto* const own = place.find(L"OutputChannel"); own != nullptr) {
                name = own->findValue(L"Name")->second;
                unit = own->findValue(L"Unit")->second;
                color = static_cast<std::uint32_t>(std::stoul(own->findValue(L"Color")->second));
            }
        });
    }

    SCRIPTED_READ(isArray, HostBool, array, hostFalse)
    SCRIPTED_WRITER(setIsArray, HostBool, array)
    SCRIPTED_OBJECT(getArrayInfo, HostArrayInfo, &arrayInfo)
    SCRIPTED_READ(getArraySize, std::int32_t, arraySize, 1)

    HostResult getDataBuffer(void** start) override {
        fitBuffers();
        return get("getDataBuffer", start, data.data());
    }
    HostResult getTimeBuffer(double** start) override {
        fitBuffers();
        return get("getTimeBuffer", start, isTrue(async) ? times.data() : nullptr);
    }
    SCRIPTED_READ(getBufferSize, std::int32_t, bufferSize, 16)
    SCRIPTED_READ(getElementSize, std::int32_t, elementSize, 1)
    SCRIPTED_READ(getWritePosition, std::int32_t, writePosition, 0)
    HostResult advanceWritePosition(std::int32_t samples) override {
        return act({"advanceWritePosition", samples},
                   [&] { writePosition = (writePosition + samples) % bufferSize; });
    }
    SCRIPTED_READ(getRateDivider, std::int32_t, rateDivider, 1)
    SCRIPTED_WRITER(setWriteOffset, std::int64_t, writeOffset)
    HostResult addVariantValue(double seconds, const HostVariant& value) override {
        const std::uint8_t* start = nullptr;
        std::uint64_t size = 0;
        if (value.type != HostVariantType::ByteArray || value.bytes->getBytes(&start, &size) < 0) {
            return HostCode::invalidArgument;
        }
        const std::vector<std::uint8_t> bytes(start, start + size);
        return act({"addVariantValue", seconds},
                   [&] { variantSamples.emplace_back(seconds, bytes); });
    }
    HostResult scaleValue(double raw, double* scaled) override {
        return get({"scaleValue", raw}, scaled, raw * scale + offset);
    }
    SCRIPTED_READ(getScale, double, scale, 1.0)
    SCRIPTED_READ(getOffset, double, offset, 0.0)

    SCRIPTED_ATTRIBUTE(TextAttribute, std::wstring, const wchar_t*)
    SCRIPTED_READ(getTextAttributeB, std::wstring, textAttributeB, L"")
    SCRIPTED_READ(getTextAttributeC, std::wstring, textAttributeC, L"")
    SCRIPTED_ATTRIBUTE(BoolAttributeA, HostBool, HostBool)
    SCRIPTED_ATTRIBUTE(BoolAttributeB, HostBool, HostBool)
    SCRIPTED_ATTRIBUTE(DoubleAttributeA, double, double)
    SCRIPTED_ATTRIBUTE(DoubleAttributeB, double, double)
    SCRIPTED_ATTRIBUTE(DoubleAttributeC, double, double)
    SCRIPTED_ATTRIBUTE(DoubleAttributeD, double, double)
    SCRIPTED_ATTRIBUTE(IntAttributeA, std::int32_t, std::int32_t)
    SCRIPTED_ATTRIBUTE(IntAttributeB, std::int32_t, std::int32_t)
    SCRIPTED_READ(getIntAttributeC, std::int32_t, intAttributeC, 0)
    SCRIPTED_TAKE(setScalarAttribute, double)
    SCRIPTED_ATTRIBUTE(BufferAttribute, std::uint32_t, std::uint32_t)

    /// The bytes of the sample at that position.
    std::vector<std::uint8_t> sampleAt(std::int32_t position) {
        fitBuffers();
        const std::uint8_t* start =
            data.data() + static_cast<std::size_t>(position) * sampleBytes();
        return {start, start + sampleBytes()};
    }
    double timeAt(std::int32_t position) {
        fitBuffers();
        return times.at(static_cast<std::size_t>(position));
    }

    std::vector<std::int32_t> indices;
    std::int64_t writeOffset = 0;
    std::vector<std::pair<double, std::vector<std::uint8_t>>> variantSamples;  ///< time and bytes
    ScriptedChannelExt& ext = script.make<ScriptedChannelExt>();
    ScriptedPropertySet& propertySet = script.make<ScriptedPropertySet>();

  private:
    std::size_t sampleBytes() const {
        return static_cast<std::size_t>(arraySize) * static_cast<std::size_t>(elementSize);
    }
    /// Gives the buffers the size that the fields tell.
    void fitBuffers() {
        const auto samples = static_cast<std::size_t>(bufferSize);
        data.resize(samples * sampleBytes());
        times.resize(samples);
    }
    std::wstring indicesAsText() const {
        std::wstring text;
        for (std::size_t place = 0; place < indices.size(); ++place) {
            text += (place == 0 ? L"" : place == 1 ? L":" : L";") + std::to_wstring(indices[place]);
        }
        return text;
    }

    std::vector<std::uint8_t> data;
    std::vector<double> times;
    ScriptedArrayInfo& arrayInfo = script.make<ScriptedArrayInfo>();
};
