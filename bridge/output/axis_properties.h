#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace Kestrova::Utils::Kcom {

/// Describes one axis of an array channel, for `OutputChannel::setAxis` and `setAxes`. Texts are
/// UTF-8. What labels, style and display values mean is the host's; they are passed through.
class AxisProperties {
  public:
    virtual ~AxisProperties() = default;

    /// How many elements the array has along this axis. Values set before are dropped.
    virtual void setSize(std::uint64_t elements) = 0;
    virtual std::uint64_t getSize() const = 0;
    /// 0 texts, 1 numbers, 2 a line.
    virtual std::int32_t getAxisType() const = 0;

    void setLabelA(std::string label) { labelA = std::move(label); }
    const std::string& getLabelA() const { return labelA; }
    void setLabelB(std::string label) { labelB = std::move(label); }
    const std::string& getLabelB() const { return labelB; }
    /// A negative value is ignored.
    void setStyle(std::int32_t newStyle) { style = newStyle >= 0 ? newStyle : style; }
    std::int32_t getStyle() const { return style; }
    void setDisplayValue(std::int32_t value) { displayValue = value; }
    std::int32_t getDisplayValue() const { return displayValue; }
    void setDisplayFlag(bool flag) { displayFlag = flag; }
    bool getDisplayFlag() const { return displayFlag; }

  private:
    std::string labelA = "-";
    std::string labelB = "-";
    std::int32_t style = 3;
    std::int32_t displayValue = 0;
    bool displayFlag = false;
};

/// An axis with a value of its own for each element.
template <typename T>
class AxisPropertiesAxisValues : public AxisProperties {
  public:
    void setSize(std::uint64_t elements) override {
        values.assign(static_cast<std::size_t>(elements), T());
    }
    std::uint64_t getSize() const override { return values.size(); }

    /// Both throw `std::out_of_range` for a position at or beyond the size.
    void setValue(std::uint64_t position, T value) {
        values.at(static_cast<std::size_t>(position)) = std::move(value);
    }
    const T& getValue(std::uint64_t position) const {
        return values.at(static_cast<std::size_t>(position));
    }

  private:
    std::vector<T> values;
};

class AxisPropertiesString final : public AxisPropertiesAxisValues<std::string> {
  public:
    std::int32_t getAxisType() const override { return 0; }
};

class AxisPropertiesFloat final : public AxisPropertiesAxisValues<double> {
  public:
    std::int32_t getAxisType() const override { return 1; }
};

/// An axis whose values lie on a line: `start`, then a `step` more for each element.
class AxisPropertiesFloatLinearFunc final : public AxisProperties {
  public:
    void setSize(std::uint64_t elements) override { size = elements; }
    std::uint64_t getSize() const override { return size; }
    std::int32_t getAxisType() const override { return 2; }

    void setStart(double value) { start = value; }
    double getStart() const { return start; }
    void setStep(double value) { step = value; }
    double getStep() const { return step; }

  private:
    std::uint64_t size = 0;
    double start = 0.0;
    double step = 0.0;
};

}  // namespace Kestrova::Utils::Kcom
