#include "station/host/channel_details.h"

namespace station {
namespace {

/// Elements of one sample: beyond it the channel's buffers would be too large for any machine.
constexpr std::int64_t mostElements = std::int64_t{1} << 24;
constexpr std::int32_t mostDimensions = 8;

HostResult failOutside(const char* what) {
    return fail(HostCode::invalidArgument, std::string("there is no such ") + what);
}

}  // namespace

HostResult AxisInfo::check(std::int32_t position) const {
    return position >= 0 && position < elements ? HostCode::success
                                                : failOutside("position on the axis");
}

HostResult ArrayInfo::setDimensionCount(std::int32_t count) {
    if (count < 0 || count > mostDimensions) {
        return fail(HostCode::invalidArgument, "an array has 0 to 8 dimensions");
    }
    sizes.assign(static_cast<std::size_t>(count), 1);
    return HostCode::success;
}

HostResult ArrayInfo::getDimensionSize(std::int32_t dimension, std::int32_t* size) {
    const auto* const found = itemAt(sizes, dimension);
    return found != nullptr ? give(size, *found) : failOutside("dimension");
}

HostResult ArrayInfo::setDimensionSize(std::int32_t dimension, std::int32_t size) {
    auto* const found = itemAt(sizes, dimension);
    return found != nullptr ? put(*found, size) : failOutside("dimension");
}

HostResult ArrayInfo::commitDimensions() {
    return guarded([&] {
        std::int64_t product = 1;
        for (const std::int32_t size : sizes) {
            product *= size;
            if (size < 1 || product > mostElements) {
                return fail(HostCode::invalidArgument,
                            "an array has at least 1 and at most 16777216 elements");
            }
        }
        axes.clear();
        for (const std::int32_t size : sizes) {
            axes.push_back(makeObject<AxisInfo>(size));
        }
        elements = static_cast<std::int32_t>(product);
        ++version;
        return HostCode::success;
    });
}

HostResult ArrayInfo::getAxis(std::int32_t dimension, HostAxisInfo** axis) {
    const auto* const found = itemAt(axes, dimension);
    return found != nullptr ? handOver(*found, axis) : failOutside("axis");
}

HostResult ValueList::getItem(std::int32_t position, HostValueItem** item) {
    const auto* const found = itemAt(items, position);
    return found != nullptr ? handOver(*found, item) : failOutside("value label");
}

HostResult ValueList::addItem(HostValueItem** item) {
    return guarded([&] {
        items.push_back(makeObject<ValueItem>());
        return handOver(items.back(), item);
    });
}

HostResult ValueList::removeItem(std::int32_t position) {
    if (itemAt(items, position) == nullptr) {
        return failOutside("value label");
    }
    items.erase(items.begin() + position);
    return HostCode::success;
}

HostResult PropertySet::getItem(const wchar_t* name, HostDocument** document) {
    const auto found = items.find(textOf(name));
    return handOver(found == items.end() ? CountedRef<HostDocument>() : found->second, document);
}

HostResult PropertySet::addItem(const wchar_t* name, HostDocument** document) {
    return guarded([&] {
        CountedRef<HostDocument>& item = items[textOf(name)];
        if (!item) {
            auto made = hostObject(factory, &HostDocumentFactory::createDocument, hostTrue);
            const auto root = hostObject(made, &HostDocument::CreateElement, name, L"");
            callHost(made, &HostDocument::SetRootElement, root.get());
            item = made;
        }
        return handOver(item, document);
    });
}

}  // namespace station
