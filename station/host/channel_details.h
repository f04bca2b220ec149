#pragma once

#include <map>
#include <string>
#include <vector>

#include "host/host_channel.h"
#include "host/host_document.h"
#include "station/host/counted.h"

namespace station {

/// The small objects behind a channel. Each keeps what it is given, for the channel and for whoever
/// shows it; each may outlive its channel. Called on the host's thread.

/// How an axis of an array channel is labelled and scaled.
struct AxisDescription {
    std::int32_t type = 0;
    std::wstring labelA;
    std::wstring labelB;
    std::int32_t style = 0;
    double start = 0.0;
    double step = 0.0;
    std::vector<double> numbers;
    std::vector<std::wstring> texts;
    std::int32_t displayValue = 0;
    bool displayFlag = false;
};

class AxisInfo final : public Counted<HostAxisInfo> {
  public:
    explicit AxisInfo(std::size_t elements);
    const AxisDescription& get() const { return description; }

    HostResult setAxisType(std::int32_t type) override;
    HostResult setLabelA(const wchar_t* label) override;
    HostResult setLabelB(const wchar_t* label) override;
    HostResult setStyle(std::int32_t style) override;
    HostResult setStart(double start) override;
    HostResult setStep(double step) override;
    HostResult setNumericValue(std::int32_t position, double value) override;
    HostResult setTextValue(std::int32_t position, const wchar_t* text) override;
    HostResult getDisplay(HostAxisDisplay** display) override;

    void setDisplayValue(std::int32_t value) { description.displayValue = value; }
    void setDisplayFlag(bool flag) { description.displayFlag = flag; }

  private:
    bool isInside(std::int32_t position) const;

    AxisDescription description;
};

/// The shape of an array channel. New sizes count from `commitDimensions` on.
class ArrayInfo final : public Counted<HostArrayInfo> {
  public:
    /// Of one sample, by the shape committed last; 1 before.
    std::int32_t getElements() const { return elements; }
    /// Goes up with each commit.
    std::uint32_t getVersion() const { return version; }
    const std::vector<CountedRef<AxisInfo>>& getAxes() const { return axes; }

    HostResult setFlag(HostBool flag) override;
    HostResult getDimensionCount(std::int32_t* count) override;
    HostResult setDimensionCount(std::int32_t count) override;
    HostResult getDimensionSize(std::int32_t dimension, std::int32_t* size) override;
    HostResult setDimensionSize(std::int32_t dimension, std::int32_t size) override;
    HostResult commitDimensions() override;
    HostResult getAxis(std::int32_t dimension, HostAxisInfo** axis) override;

  private:
    bool hasDimension(std::int32_t dimension) const;

    bool flag = false;
    std::vector<std::int32_t> sizes;
    std::vector<CountedRef<AxisInfo>> axes;
    std::int32_t elements = 1;
    std::uint32_t version = 0;
};

class ValueItem final : public Counted<HostValueItem> {
  public:
    HostResult getValue(std::int32_t* result) override;
    HostResult setValue(std::int32_t newValue) override;
    HostResult getText(std::wstring* result) override;
    HostResult setText(const wchar_t* newText) override;
    HostResult getColor(std::int32_t* result) override;
    HostResult setColor(std::int32_t newColor) override;

  private:
    std::int32_t value = 0;
    std::wstring text;
    std::int32_t color = 0;
};

class ValueList final : public Counted<HostValueList> {
  public:
    HostResult getCount(std::int32_t* count) override;
    HostResult getItem(std::int32_t position, HostValueItem** item) override;
    HostResult addItem(HostValueItem** item) override;
    HostResult removeItem(std::int32_t position) override;

  private:
    bool hasItem(std::int32_t position) const;

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

/// A text that came in, where null means an empty one.
inline std::wstring textOf(const wchar_t* text) {
    return text == nullptr ? std::wstring() : std::wstring(text);
}

}  // namespace station
