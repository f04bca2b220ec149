#pragma once

#include "bridge/output/output_channel.h"
#include "bridge/output/properties.h"

namespace Kestrova::Utils::Kcom::OutputChannel {

/// The base of output channels that have no host behind them: each operation drops what it gets
/// and answers with a neutral value. A derived class overrides what it has a use for.
class PlainOutputChannel : public OutputChannel {
  public:
    std::string getChannelIdText() const override { return {}; }
    std::uint32_t getIndex() const override { return 0; }
    OutputChannelType getChannelType() const override { return {}; }

    void setName(const std::string&) override {}
    std::string getName() const override { return {}; }
    void setTextAttribute(const std::string&) override {}
    std::string getTextAttribute() const override { return {}; }
    void setExtTextAttribute(const std::string&) override {}
    std::string getTextAttributeB() const override { return {}; }
    std::string getTextAttributeC() const override { return {}; }
    void setUnit(const std::string&) override {}
    std::string getUnit() const override { return {}; }
    void setUsed(bool) override {}
    bool isUsed() const override { return false; }
    void setBoolAttributeA(bool) override {}
    bool getBoolAttributeA() const override { return false; }
    void setBoolAttributeB(bool) override {}
    bool getBoolAttributeB() const override { return false; }
    void setColor(std::uint32_t) override {}
    std::uint32_t getColor() const override { return 0; }
    void setDoubleAttributeA(double) override {}
    double getDoubleAttributeA() const override { return 0.0; }
    void setDoubleAttributeB(double) override {}
    double getDoubleAttributeB() const override { return 0.0; }
    void setDoubleAttributeC(double) override {}
    double getDoubleAttributeC() const override { return 0.0; }
    void setDoubleAttributeD(double) override {}
    double getDoubleAttributeD() const override { return 0.0; }
    void setScalarAttribute(double) override {}
    std::int32_t getIntAttributeC() const override { return 0; }
    std::int32_t getRateDivider() const override { return 1; }
    void setIntAttributeA(std::int32_t) override {}
    std::int32_t getIntAttributeA() const override { return 0; }
    void setIntAttributeB(std::int32_t) override {}
    std::int32_t getIntAttributeB() const override { return 0; }
    void setExtIntAttribute(std::int32_t) override {}
    std::int32_t getExtIntAttribute() const override { return 0; }
    void setExtDoubleAttributeA(double) override {}
    double getExtDoubleAttributeA() const override { return 0.0; }
    void setExtDoubleAttributeB(double) override {}
    double getExtDoubleAttributeB() const override { return 0.0; }

    void addValueLabel(const ValueLabel&) override {}
    void setValueLabel(const ValueLabel&) override {}
    FoundValueLabel getValueLabel(std::int32_t) const override { return {}; }
    void removeValueLabel(std::int32_t) override {}
    void removeValueLabelAt(std::uint64_t) override {}
    void replaceValueLabelAt(std::uint64_t, const ValueLabel&) override {}
    void setValueLabels(const std::vector<ValueLabel>&) override {}
    std::vector<ValueLabel> getValueLabels() const override { return {}; }
    void clearValueLabels() override {}
    std::int32_t getValueLabelCount() const override { return 0; }

    void setDefaultName(const std::string&) override {}
    bool isAutomaticName() const override { return false; }
    void setDefaultUnit(const std::string&) override {}
    bool isAutomaticUnit() const override { return false; }
    void setDefaultColor(std::uint32_t) override {}
    bool isAutomaticColor() const override { return false; }

    void setExcluded(bool) override {}
    bool isExcluded() const override { return false; }
    void setChannelIndices(const std::vector<std::int32_t>&) override {}
    void setExpectedRate(float) override {}
    float getExpectedRate() const override { return 0.0F; }
    void setBufferAttribute(std::uint32_t) override {}
    std::uint32_t getBufferAttribute() const override { return 0; }

    void setAxis(const AxisProperties&) override {}
    void setAxis(const AxisProperties&, bool) override {}
    void setAxes(const AxisProperties&, const AxisProperties&) override {}
    void setAxes(const AxisProperties&, const AxisProperties&, bool) override {}
    bool isArray() const override { return false; }
    std::int32_t getArraySize() const override { return 1; }
    std::int32_t getDimensionCount() const override { return 1; }
    std::int32_t getFirstDimensionSize() const override { return 1; }
    std::int32_t getSecondDimensionSize() const override { return 1; }

    const Properties& getProperties() const override { return properties; }
    Properties& getProperties() override { return properties; }
    void applySetup(std::shared_ptr<Node>&) override {}
    void saveSetup(std::shared_ptr<Node>&) const override {}

    double getLastValue() const override { return 0.0; }
    void setValueRaw(const void*, std::uint64_t) override {}
    void setValueRawClamped(const void*, std::uint64_t) override {}
    void addSynchronousSample(const void*, std::uint64_t) override {}
    void addAsynchronousBlockSample(const void*, std::uint64_t, double) override {}
    void addAsynchronousSample(const void*, std::uint64_t, double) override {}
    void addVariantSample(const void*, std::uint64_t, double) override {}
    double samplesToSeconds(std::int64_t) const override { return 0.0; }

  private:
    class NoProperties final : public Properties {
      public:
        std::shared_ptr<Node> getNode(const std::string&) const override { return nullptr; }
        std::shared_ptr<Node> getChildNode(const std::string&,
                                           const std::shared_ptr<Node>&) const override {
            return nullptr;
        }
        std::shared_ptr<Node> addNode(const std::string&) override { return nullptr; }
    };
    NoProperties properties;
};

}  // namespace Kestrova::Utils::Kcom::OutputChannel
