#pragma once

#include <map>
#include <string>
#include <vector>

#include "host/host_channel.h"
#include "host/host_document.h"
#include "station/host/counted.h"

namespace station {

/// The small objects behind a channel. Each may outlive its channel. Called on the host's thread.

/// The item at a position that a plug-in gave; null if there is none.
template <typename Items>
auto* itemAt(Items& items, std::int32_t position) {
    const auto place = static_cast<std::size_t>(position);
    return position >= 0 && place < items.size() ? &items[place] : nullptr;
}

/// An axis of an array channel. This host draws no arrays: what a plug-in says of the axis is
/// checked, and not kept, its display's values neither.
class AxisInfo final : public Counted<HostAxisInfo, HostAxisDisplay> {
  public:
    explicit AxisInfo(std::int32_t elementCount) : elements(elementCount) {}

    HostResult setAxisType(std::int32_t) override { return HostCode::success; }
    HostResult setLabelA(const wchar_t*) override { return HostCode::success; }
    HostResult setLabelB(const wchar_t*) override { return HostCode::success; }
    HostResult setStyle(std::int32_t) override { return HostCode::success; }
    HostResult setStart(double) override { return HostCode::success; }
    HostResult setStep(double) override { return HostCode::success; }
    HostResult setNumericValue(std::int32_t position, double) override { return check(position); }
    HostResult setTextValue(std::int32_t position, const wchar_t*) override {
        return check(position);
    }
    HostResult getDisplay(HostAxisDisplay** display) override {
        return handOver(CountedRef<AxisInfo>(this), display);
    }
    HostResult setValue(std::int32_t) override { return HostCode::success; }
    HostResult setFlag(HostBool) override { return HostCode::success; }

  private:
    HostResult check(std::int32_t position) const;

    const std::int32_t elements;
};

/// The shape of an array channel. New sizes count from `commitDimensions` on.
class ArrayInfo final : public Counted<HostArrayInfo> {
  public:
    /// Of one sample, by the shape committed last; 1 before.
    std::int32_t getElements() const { return elements; }
    /// Goes up with each commit.
    std::uint32_t getVersion() const { return version; }

    HostResult setFlag(HostBool) override { return HostCode::success; }
    HostResult getDimensionCount(std::int32_t* count) override {
        return give(count, static_cast<std::int32_t>(sizes.size()));
    }
    HostResult setDimensionCount(std::int32_t count) override;
    HostResult getDimensionSize(std::int32_t dimension, std::int32_t* size) override;
    HostResult setDimensionSize(std::int32_t dimension, std::int32_t size) override;
    HostResult commitDimensions() override;
    HostResult getAxis(std::int32_t dimension, HostAxisInfo** axis) override;

  private:
    std::vector<std::int32_t> sizes;
    std::vector<CountedRef<AxisInfo>> axes;
    std::int32_t elements = 1;
    std::uint32_t version = 0;
};

class ValueItem final : public Counted<HostValueItem> {
  public:
    HostResult getValue(std::int32_t* result) override { return give(result, value); }
    HostResult setValue(std::int32_t newValue) override { return put(value, newValue); }
    HostResult getText(std::wstring* result) override { return give(result, text); }
    HostResult setText(const wchar_t* newText) override { return put(text, textOf(newText)); }
    HostResult getColor(std::int32_t* result) override { return give(result, color); }
    HostResult setColor(std::int32_t newColor) override { return put(color, newColor); }

  private:
    std::int32_t value = 0;
    std::wstring text;
    std::int32_t color = 0;
};

class ValueList final : public Counted<HostValueList> {
  public:
    HostResult getCount(std::int32_t* count) override {
        return give(count, static_cast<std::int32_t>(items.size()));
    }
    HostResult getItem(std::int32_t position, HostValueItem** item) override;
    HostResult addItem(HostValueItem** item) override;
    HostResult removeItem(std::int32_t position) override;

  private:
    std::vector<CountedRef<ValueItem>> items;
};

/// Documents made by the station's document factory, each with a root of the item's name.
class PropertySet final : public Counted<HostPropertySet> {
  public:
    /// Without a factory no item can be added.
    explicit PropertySet(CountedRef<HostDocumentFactory> documentFactory)
        : factory(std::move(documentFactory)) {}

    HostResult getItem(const wchar_t* name, HostDocument** document) override;
    /// The one that is there already, if any.
    HostResult addItem(const wchar_t* name, HostDocument** document) override;

  private:
    const CountedRef<HostDocumentFactory> factory;
    std::map<std::wstring, CountedRef<HostDocument>> items;
};

}  // namespace station
