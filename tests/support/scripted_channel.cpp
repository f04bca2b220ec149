#include "tests/support/scripted_channel.h"

#include <algorithm>
#include <array>

namespace {

template <typename List>
bool isInside(std::int32_t position, const List& list) {
    return position >= 0 && static_cast<std::size_t>(position) < list.size();
}

}  // namespace

HostResult ScriptedValueList::getCount(std::int32_t* number) {
    return get("HostValueList::getCount", number, static_cast<std::int32_t>(items.size()));
}

HostResult ScriptedValueList::getItem(std::int32_t position, HostValueItem** item) {
    const auto find = [&]() -> HostValueItem* {
        return isInside(position, items) ? items[static_cast<std::size_t>(position)] : nullptr;
    };
    return hand("HostValueList::getItem", item, find, position);
}

HostResult ScriptedValueList::addItem(HostValueItem** item) {
    const auto add = [&] {
        items.push_back(&script.make<ScriptedValueItem>());
        return items.back();
    };
    return hand("HostValueList::addItem", item, add);
}

HostResult ScriptedValueList::removeItem(std::int32_t position) {
    const HostResult code = call("HostValueList::removeItem", position);
    if (code < 0) {
        return code;
    }
    if (!isInside(position, items)) {
        return HostCode::invalidArgument;
    }
    items.erase(items.begin() + position);
    return code;
}

HostResult ScriptedAxisInfo::setNumericValue(std::int32_t position, double value) {
    const HostResult code = call("HostAxisInfo::setNumericValue", position, value);
    if (code >= 0) {
        numbers[position] = value;
    }
    return code;
}

HostResult ScriptedAxisInfo::setTextValue(std::int32_t position, const wchar_t* text) {
    const HostResult code = call("HostAxisInfo::setTextValue", position, text);
    if (code >= 0) {
        texts[position] = text == nullptr ? L"" : text;
    }
    return code;
}

HostResult ScriptedAxisInfo::getDisplay(HostAxisDisplay** out) {
    return hand("HostAxisInfo::getDisplay", out, [&] { return &display; });
}

HostResult ScriptedArrayInfo::getDimensionCount(std::int32_t* number) {
    return get("HostArrayInfo::getDimensionCount", number, static_cast<std::int32_t>(sizes.size()));
}

HostResult ScriptedArrayInfo::setDimensionCount(std::int32_t number) {
    const HostResult code = call("HostArrayInfo::setDimensionCount", number);
    if (code >= 0) {
        sizes.assign(static_cast<std::size_t>(std::max(number, 0)), 0);
        axes.clear();
    }
    return code;
}

HostResult ScriptedArrayInfo::getDimensionSize(std::int32_t dimension, std::int32_t* elements) {
    const std::int32_t size =
        isInside(dimension, sizes) ? sizes[static_cast<std::size_t>(dimension)] : 0;
    return get("HostArrayInfo::getDimensionSize", elements, size, dimension);
}

HostResult ScriptedArrayInfo::setDimensionSize(std::int32_t dimension, std::int32_t elements) {
    const HostResult code = call("HostArrayInfo::setDimensionSize", dimension, elements);
    if (code < 0) {
        return code;
    }
    if (!isInside(dimension, sizes)) {
        return HostCode::invalidArgument;
    }
    sizes[static_cast<std::size_t>(dimension)] = elements;
    return code;
}

HostResult ScriptedArrayInfo::commitDimensions() {
    const HostResult code = call("HostArrayInfo::commitDimensions");
    if (code >= 0) {
        axes.clear();
        for (std::size_t dimension = 0; dimension < sizes.size(); ++dimension) {
            axes.push_back(&script.make<ScriptedAxisInfo>());
        }
    }
    return code;
}

HostResult ScriptedArrayInfo::getAxis(std::int32_t dimension, HostAxisInfo** axis) {
    const auto find = [&]() -> HostAxisInfo* {
        return isInside(dimension, axes) ? axes[static_cast<std::size_t>(dimension)] : nullptr;
    };
    return hand("HostArrayInfo::getAxis", axis, find, dimension);
}

HostResult ScriptedPropertySet::getItem(const wchar_t* name, HostDocument** document) {
    const auto find = [&]() -> HostDocument* {
        const auto place = documents.find(name == nullptr ? L"" : name);
        return place == documents.end() ? nullptr : place->second;
    };
    return hand("HostPropertySet::getItem", document, find, name);
}

HostResult ScriptedPropertySet::addItem(const wchar_t* name, HostDocument** document) {
    const auto add = [&] {
        auto& added = documents[name == nullptr ? L"" : name];
        added = &script.make<ScriptedDocument>(true);
        added->root = &script.make<ScriptedElement>(L"Root");
        return added;
    };
    return hand("HostPropertySet::addItem", document, add, name);
}

ScriptedChannel::ScriptedChannel(CallScript& callScript, std::vector<std::int32_t> indicesOfChannel)
    : Scripted(callScript, "HostChannel"),
      indices(std::move(indicesOfChannel)),
      ext(callScript),
      arrayInfo(callScript),
      valueList(callScript),
      propertySet(callScript) {
    addPart<HostChannelExt>(&ext);
    ext.addPart<HostChannel>(this);
}

HostResult ScriptedChannel::getIndices(std::vector<std::int32_t>* value) {
    return get("HostChannel::getIndices", value, indices);
}

HostResult ScriptedChannel::setIndices(const std::int32_t* values, std::int32_t number) {
    const std::vector<std::int32_t> given(values, values + number);
    const HostResult code = call("HostChannel::setIndices", given);
    if (code >= 0) {
        indices = given;
    }
    return code;
}

HostResult ScriptedChannel::setDataType(std::int32_t type) {
    static constexpr std::array<std::int32_t, 11> sizes = {1, 1, 2, 2, 4, 4, 8, 8, 4, 8, 16};
    static constexpr std::int32_t canFrame = 14;
    const HostResult code = set("HostChannel::setDataType", dataType, type);
    if (code >= 0 && isInside(type, sizes)) {
        elementSize = sizes[static_cast<std::size_t>(type)];
    } else if (code >= 0 && type == canFrame) {
        elementSize = 72;
    }
    return code;
}

HostResult ScriptedChannel::getValueList(HostValueList** list) {
    return hand("HostChannel::getValueList", list, [&] { return &valueList; });
}

HostResult ScriptedChannel::getPropertySet(HostPropertySet** set) {
    return hand("HostChannel::getPropertySet", set, [&] { return &propertySet; });
}

HostResult ScriptedChannel::getArrayInfo(HostArrayInfo** info) {
    return hand("HostChannel::getArrayInfo", info, [&] { return &arrayInfo; });
}

HostResult ScriptedChannel::persistSetup(HostDocument* document, HostElement* element,
                                         HostBool saving) {
    const HostResult code = call("HostChannel::persistSetup", document, element, saving);
    auto* const place = dynamic_cast<ScriptedElement*>(element);
    if (code < 0 || place == nullptr) {
        return code < 0 ? code : HostCode::invalidPointer;
    }
    if (isTrue(saving)) {
        auto& own = place->addNew(L"OutputChannel");
        own.values = {{L"Name", name}, {L"Unit", unit}, {L"Color", std::to_wstring(color)}};
        own.addNew(L"Index", indicesAsText());
    } else if (const auto* const own = place->find(L"OutputChannel"); own != nullptr) {
        name = own->valueOf(L"Name");
        unit = own->valueOf(L"Unit");
        color = static_cast<std::uint32_t>(std::stoul(own->valueOf(L"Color")));
    }
    return code;
}

std::wstring ScriptedChannel::indicesAsText() const {
    std::wstring text;
    for (std::size_t place = 0; place < indices.size(); ++place) {
        text += (place == 0 ? L"" : place == 1 ? L":" : L";") + std::to_wstring(indices[place]);
    }
    return text;
}

HostResult ScriptedChannel::getDataBuffer(void** start) {
    fitBuffers();
    return get("HostChannel::getDataBuffer", start, data.data());
}

HostResult ScriptedChannel::getTimeBuffer(double** start) {
    fitBuffers();
    return get("HostChannel::getTimeBuffer", start, isTrue(async) ? times.data() : nullptr);
}

HostResult ScriptedChannel::advanceWritePosition(std::int32_t samples) {
    const HostResult code = call("HostChannel::advanceWritePosition", samples);
    if (code >= 0) {
        writePosition = (writePosition + samples) % bufferSize;
    }
    return code;
}

HostResult ScriptedChannel::addVariantValue(double seconds, const HostVariant& value) {
    const HostResult code = call("HostChannel::addVariantValue", seconds, value);
    if (code < 0) {
        return code;
    }
    if (value.type != HostVariantType::ByteArray || value.bytes == nullptr) {
        return HostCode::invalidArgument;
    }
    const std::uint8_t* start = nullptr;
    std::uint64_t size = 0;
    const HostResult answer = value.bytes->getBytes(&start, &size);
    if (answer >= 0) {
        variantSamples.emplace_back(seconds, std::vector<std::uint8_t>(start, start + size));
    }
    return answer;
}

HostResult ScriptedChannel::scaleValue(double raw, double* scaled) {
    return get("HostChannel::scaleValue", scaled, raw * scale + offset, raw);
}

std::size_t ScriptedChannel::sampleBytes() const {
    return static_cast<std::size_t>(arraySize) * static_cast<std::size_t>(elementSize);
}

void ScriptedChannel::fitBuffers() {
    const auto samples = static_cast<std::size_t>(bufferSize);
    data.resize(samples * sampleBytes());
    times.resize(samples);
}

std::vector<std::uint8_t> ScriptedChannel::sampleAt(std::int32_t position) {
    fitBuffers();
    const std::uint8_t* start = data.data() + static_cast<std::size_t>(position) * sampleBytes();
    return {start, start + sampleBytes()};
}

double ScriptedChannel::timeAt(std::int32_t position) {
    fitBuffers();
    return times.at(static_cast<std::size_t>(position));
}
