#include "station/host/channel_details.h"

#include "host/host_error.h"

namespace station {
namespace {

/// Elements of one sample: beyond it the channel's buffers would be too large for any machine.
constexpr std::int64_t mostElements = std::int64_t{1} << 24;
constexpr std::int32_t mostDimensions = 8;

class AxisDisplay final : public Counted<HostAxisDisplay> {
  public:
    explicit AxisDisplay(CountedRef<AxisInfo> owner) : axis(std::move(owner)) {}

    HostResult setValue(std::int32_t value) override {
        axis->setDisplayValue(value);
        return HostCode::success;
    }
    HostResult setFlag(HostBool flag) override {
        axis->setDisplayFlag(isTrue(flag));
        return HostCode::success;
    }

  private:
    const CountedRef<AxisInfo> axis;
};

template <typename T, typename Value>
HostResult put(T& field, const Value& value) {
    field = value;
    return HostCode::success;
}

template <typename T, typename Value>
HostResult give(T* result, const Value& value) {
    *result = value;
    return HostCode::success;
}

HostResult failOutside(const char* what) {
    return fail(HostCode::invalidArgument, std::string("there is no such ") + what);
}

}  // namespace

AxisInfo::AxisInfo(std::size_t elements) {
    description.numbers.resize(elements);
    description.texts.resize(elements);
}

bool AxisInfo::isInside(std::int32_t position) const {
    return position >= 0 && static_cast<std::size_t>(position) < description.numbers.size();
}

HostResult AxisInfo::setAxisType(std::int32_t type) {
    return put(description.type, type);
}

HostResult AxisInfo::setLabelA(const wchar_t* label) {
    return put(description.labelA, textOf(label));
}

HostResult AxisInfo::setLabelB(const wchar_t* label) {
    return put(description.labelB, textOf(label));
}

HostResult AxisInfo::setStyle(std::int32_t style) {
    return put(description.style, style);
}

HostResult AxisInfo::setStart(double start) {
    return put(description.start, start);
}

HostResult AxisInfo::setStep(double step) {
    return put(description.step, step);
}

HostResult AxisInfo::setNumericValue(std::int32_t position, double value) {
    return isInside(position) ? put(description.numbers[static_cast<std::size_t>(position)], value)
                              : failOutside("position on the axis");
}

HostResult AxisInfo::setTextValue(std::int32_t position, const wchar_t* text) {
    return isInside(position)
               ? put(description.texts[static_cast<std::size_t>(position)], textOf(text))
               : failOutside("position on the axis");
}

HostResult AxisInfo::getDisplay(HostAxisDisplay** display) {
    return handOver(makeObject<AxisDisplay>(CountedRef<AxisInfo>(this)), display);
}

bool ArrayInfo::hasDimension(std::int32_t dimension) const {
    return dimension >= 0 && static_cast<std::size_t>(dimension) < sizes.size();
}

HostResult ArrayInfo::setFlag(HostBool newFlag) {
    return put(flag, isTrue(newFlag));
}

HostResult ArrayInfo::getDimensionCount(std::int32_t* count) {
    return give(count, static_cast<std::int32_t>(sizes.size()));
}

HostResult ArrayInfo::setDimensionCount(std::int32_t count) {
    if (count < 0 || count > mostDimensions) {
        return fail(HostCode::invalidArgument, "an array has 0 to 8 dimensions");
    }
    sizes.assign(static_cast<std::size_t>(count), 1);
    return HostCode::success;
}

HostResult ArrayInfo::getDimensionSize(std::int32_t dimension, std::int32_t* size) {
    return hasDimension(dimension) ? give(size, sizes[static_cast<std::size_t>(dimension)])
                                   : failOutside("dimension");
}

HostResult ArrayInfo::setDimensionSize(std::int32_t dimension, std::int32_t size) {
    return hasDimension(dimension) ? put(sizes[static_cast<std::size_t>(dimension)], size)
                                   : failOutside("dimension");
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
            axes.push_back(makeObject<AxisInfo>(static_cast<std::size_t>(size)));
        }
        elements = static_cast<std::int32_t>(product);
        ++version;
        return HostCode::success;
    });
}

HostResult ArrayInfo::getAxis(std::int32_t dimension, HostAxisInfo** axis) {
    if (dimension < 0 || static_cast<std::size_t>(dimension) >= axes.size()) {
        return failOutside("axis");
    }
    return handOver(axes[static_cast<std::size_t>(dimension)], axis);
}

HostResult ValueItem::getValue(std::int32_t* result) {
    return give(result, value);
}

HostResult ValueItem::setValue(std::int32_t newValue) {
    return put(value, newValue);
}

HostResult ValueItem::getText(std::wstring* result) {
    return give(result, text);
}

HostResult ValueItem::setText(const wchar_t* newText) {
    return put(text, textOf(newText));
}

HostResult ValueItem::getColor(std::int32_t* result) {
    return give(result, color);
}

HostResult ValueItem::setColor(std::int32_t newColor) {
    return put(color, newColor);
}

bool ValueList::hasItem(std::int32_t position) const {
    return position >= 0 && static_cast<std::size_t>(position) < items.size();
}

HostResult ValueList::getCount(std::int32_t* count) {
    return give(count, static_cast<std::int32_t>(items.size()));
}

HostResult ValueList::getItem(std::int32_t position, HostValueItem** item) {
    return hasItem(position) ? handOver(items[static_cast<std::size_t>(position)], item)
                             : failOutside("value label");
}

HostResult ValueList::addItem(HostValueItem** item) {
    return guarded([&] {
        items.push_back(makeObject<ValueItem>());
        return handOver(items.back(), item);
    });
}

HostResult ValueList::removeItem(std::int32_t position) {
    if (!hasItem(position)) {
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
