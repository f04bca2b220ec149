#include "station/host/station_channel.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "core/parse_number.h"
#include "core/string_helper.h"

namespace station {
namespace {

using Kestrova::Utils::Kcom::StringHelper;

/// Bytes of an element by data type code; 0: there is no such type.
constexpr std::array<std::int32_t, 15> elementSizes = {
    1, 1, 2, 2, 4, 4, 8, 8, 4, 8, 16, 0, 1, 0, StationChannel::recordSize};

/// Room in the buffers, at the expected rate.
constexpr double bufferSeconds = 2.0;
/// Samples a second; no bus has as many.
constexpr float highestRate = 1e6F;
constexpr std::size_t leastBytes = std::size_t{64} << 10;
constexpr std::size_t mostBytes = std::size_t{8} << 20;  // with the times
/// What a sample of any size is expected to take.
constexpr std::size_t variantBytes = 16;
/// Indices that say whose channel it is.
constexpr std::size_t ownerIndices = 2;

std::int32_t elementSize(std::int32_t type) {
    return type >= 0 && static_cast<std::size_t>(type) < elementSizes.size()
               ? elementSizes[static_cast<std::size_t>(type)]
               : 0;
}

constexpr const wchar_t* elementName = L"OutputChannel";
constexpr const wchar_t* indexName = L"Index";
constexpr const wchar_t* databaseName = L"Database";

template <typename Number>
std::wstring toText(Number number) {
    return StringHelper::ToWide(fmt::format("{}", number));
}

/// The values of a channel's element. Reading raises for a text that isn't of the type.
class Values {
  public:
    Values(HostDocument* owner, HostElement* holder) : document(owner), element(holder) {}

    /// Always written: its default is another text.
    void write(const wchar_t* key, const std::wstring& value) const {
        callHost(document, &HostDocument::WriteValue, element, key, value.c_str(),
                 (value + L"#").c_str());
    }

    std::wstring read(const wchar_t* key, const std::wstring& present) const {
        std::wstring value;
        callHost(document, &HostDocument::ReadValue, element, key, &value, present.c_str());
        return value;
    }

    template <typename Number>
    Number readNumber(const wchar_t* key, Number present) const {
        const std::string text = StringHelper::ToUtf8(read(key, toText(present)));
        const auto number = parseNumber<Number>(text);
        if (!number) {
            raise(key, text, "a number");
        }
        return *number;
    }

    bool readFlag(const wchar_t* key, bool present) const {
        const std::string text = StringHelper::ToUtf8(read(key, present ? L"True" : L"False"));
        if (text != "True" && text != "False") {
            raise(key, text, "True or False");
        }
        return text == "True";
    }

    [[noreturn]] static void raise(const wchar_t* key, const std::string& text,
                                   const char* expected) {
        throw std::runtime_error(fmt::format("\"{}\" of a channel is \"{}\" and not {}",
                                             StringHelper::ToUtf8(key), text, expected));
    }

  private:
    HostDocument* const document;
    HostElement* const element;
};

/// Indices as text: the first, ":", the others separated by ";".
std::wstring toIndexText(const std::vector<std::int32_t>& indices) {
    std::wstring text;
    for (std::size_t i = 0; i < indices.size(); ++i) {
        text += (i == 0 ? L"" : i == 1 ? L":" : L";") + toText(indices[i]);
    }
    return text;
}

std::vector<std::wstring> readDatabases(HostElement& element) {
    std::vector<std::wstring> paths;
    std::int32_t count = 0;
    callHost(&element, &HostElement::GetChildCount, &count);
    for (std::int32_t i = 0; i < count; ++i) {
        const auto child = hostObject(&element, &HostElement::GetChild, i);
        std::wstring name;
        callHost(child, &HostElement::GetName, &name);
        if (name == databaseName) {
            callHost(child, &HostElement::GetText, &paths.emplace_back());
        }
    }
    return paths;
}

}  // namespace

StationChannel::StationChannel(std::vector<std::int32_t> channelIndices,
                               ChannelEnvironment surroundings)
    : environment(std::move(surroundings)),
      arrayInfo(makeObject<ArrayInfo>()),
      valueList(makeObject<ValueList>()),
      propertySet(makeObject<PropertySet>(environment.documentFactory)),
      place(std::move(channelIndices)) {}

std::int32_t StationChannel::arrayElements() const {
    return array ? arrayInfo->getElements() : 1;
}

std::size_t StationChannel::sampleBytes() const {
    return static_cast<std::size_t>(elementSize(type)) * static_cast<std::size_t>(arrayElements());
}

/// Without its time.
std::size_t StationChannel::roomOfSample() const {
    return std::max<std::size_t>(type == variantType ? variantBytes : sampleBytes(), 1);
}

std::size_t StationChannel::samplesOfRoom() const {
    const std::size_t bytes = roomOfSample();
    const double wanted = std::ceil(bufferSeconds * static_cast<double>(expectedRate));
    const std::size_t least = (leastBytes + bytes - 1) / bytes;
    const std::size_t left = environment.mostBufferBytes -
                             std::min(*environment.bufferBytes, environment.mostBufferBytes);
    const std::size_t most = std::max<std::size_t>(
        std::clamp(left, leastBytes, mostBytes) / (bytes + sizeof(double)), 1);
    const auto limited = static_cast<std::size_t>(std::min(wanted, static_cast<double>(most)));
    return std::clamp(limited, std::min(least, most), most);
}

StationChannel::~StationChannel() {
    giveRoomBack();
}

void StationChannel::giveRoomBack() {
    *environment.bufferBytes -= std::exchange(ownBytes, 0);
}

void StationChannel::allocate() {
    giveRoomBack();
    const std::size_t samples = samplesOfRoom();
    ownBytes = samples * (roomOfSample() + sizeof(double));
    *environment.bufferBytes += ownBytes;
    if (type == variantType) {
        ring.release();
        variants.allocate(samples, samples * variantBytes);
    } else {
        variants.release();
        ring.allocate(samples, sampleBytes(), async);
    }
    allocated = true;
    seenVersion = arrayInfo->getVersion();
}

void StationChannel::beginMeasurement() {
    claimed = false;
    ensureBuffers();
    ring.clear();
    variants.clear();
}

void StationChannel::takeNew(ChannelSink& sink) {
    if (type == variantType) {
        variants.takeNew(sink);
    } else {
        ring.takeNew(sink, static_cast<double>(offset), environment.acquisitionRate);
    }
}

HostResult StationChannel::setIndices(const std::int32_t* values, std::int32_t count) {
    return guarded([&] {
        if (count < 0) {
            return fail(HostCode::invalidArgument, "the number of indices is negative");
        }
        place.resize(std::min(place.size(), ownerIndices));
        place.insert(place.end(), values, values + count);
        ++*environment.moves;
        return HostCode::success;
    });
}

HostResult StationChannel::setDataType(std::int32_t newType) {
    if (elementSize(newType) == 0) {
        return fail(HostCode::invalidArgument, fmt::format("there is no data type {}", newType));
    }
    return putLayout(type, newType);
}

HostResult StationChannel::setExpectedRate(float samplesPerSecond) {
    if (!(samplesPerSecond >= 0.0F && samplesPerSecond <= highestRate)) {
        return fail(HostCode::invalidArgument,
                    fmt::format("an expected rate is a number from 0 to {:.0f}, and not {}",
                                highestRate, samplesPerSecond));
    }
    return putLayout(expectedRate, samplesPerSecond);
}

HostResult StationChannel::getElementSize(std::int32_t* bytes) {
    *bytes = elementSize(type);
    return HostCode::success;
}

HostResult StationChannel::advanceWritePosition(std::int32_t samples) {
    if (samples < 0 || hasLayoutMoved() || type == variantType) {
        return fail(HostCode::invalidArgument, "there is nothing written that could be committed");
    }
    ring.advance(static_cast<std::size_t>(samples));
    if (onFull && ring.isFull()) {
        onFull();
    }
    return HostCode::success;
}

HostResult StationChannel::addVariantValue(double seconds, const HostVariant& value) {
    return guarded([&] {
        if (type != variantType || value.type != HostVariantType::ByteArray) {
            return fail(HostCode::invalidArgument,
                        "only a byte array, and only to a channel of data type 12, can be added");
        }
        const std::uint8_t* bytes = nullptr;
        std::uint64_t size = 0;
        callHost(value.bytes, &HostByteArray::getBytes, &bytes, &size);
        ensureBuffers();
        if (onFull && variants.isFullFor(static_cast<std::size_t>(size))) {
            onFull();
        }
        if (!variants.add(bytes, static_cast<std::size_t>(size), seconds)) {
            return fail(HostCode::outOfMemory,
                        fmt::format("a sample of {} bytes is too large for its channel", size));
        }
        return HostCode::success;
    });
}

HostResult StationChannel::allocateBuffers(HostBool) {
    return guarded([&] {
        ensureBuffers();
        return HostCode::success;
    });
}

HostResult StationChannel::releaseBuffers() {
    ring.release();
    variants.release();
    giveRoomBack();
    allocated = false;
    return HostCode::success;
}

HostResult StationChannel::persistSetup(HostDocument* document, HostElement* element,
                                        HostBool saving) {
    return guarded(
        [&] { return isTrue(saving) ? save(document, element) : load(document, element); });
}

HostResult StationChannel::save(HostDocument* document, HostElement* element) const {
    while (const auto old = hostObject(element, &HostElement::FindChild, elementName)) {
        callHost(element, &HostElement::RemoveChild, old.get());
    }
    const auto made = hostObject(document, &HostDocument::CreateElement, elementName, L"");
    callHost(element, &HostElement::AddChild, made.get());
    const auto index =
        hostObject(document, &HostDocument::CreateElement, indexName, toIndexText(place).c_str());
    callHost(made, &HostElement::AddChild, index.get());
    for (const std::wstring& path : databases) {
        const auto child =
            hostObject(document, &HostDocument::CreateElement, databaseName, path.c_str());
        callHost(made, &HostElement::AddChild, child.get());
    }
    const Values values(document, made.get());
    values.write(L"Name", channelName);
    values.write(L"Unit", unit);
    values.write(L"Color", toText(color));
    values.write(L"Used", isUsedNow ? L"True" : L"False");
    values.write(L"ExpectedRate", toText(expectedRate));
    if (bitRates.nominal != 0) {
        values.write(L"BitRate", toText(bitRates.nominal));
        values.write(L"DataBitRate", toText(bitRates.data));
    }
    return HostCode::success;
}

HostResult StationChannel::load(HostDocument* document, HostElement* element) {
    const auto saved = hostObject(element, &HostElement::FindChild, elementName);
    if (!saved) {
        return HostCode::success;
    }
    const Values values(document, saved.get());
    const std::wstring newName = values.read(L"Name", channelName);
    const std::wstring newUnit = values.read(L"Unit", unit);
    const auto newColor = values.readNumber(L"Color", color);
    const bool newUsed = values.readFlag(L"Used", isUsedNow);
    const auto newRate = values.readNumber(L"ExpectedRate", expectedRate);
    const BitRates newRates{values.readNumber(L"BitRate", bitRates.nominal),
                            values.readNumber(L"DataBitRate", bitRates.data)};
    std::vector<std::wstring> newDatabases = readDatabases(*saved);
    if (const HostResult code = setExpectedRate(newRate); code < 0) {
        return code;
    }
    channelName = newName;
    unit = newUnit;
    color = newColor;
    isUsedNow = newUsed;
    databases = std::move(newDatabases);
    bitRates = newRates;
    return HostCode::success;
}

}  // namespace station
