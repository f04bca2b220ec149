#pragma once

#include <initializer_list>
#include <memory>
#include <utility>
#include <vector>

#include "bridge/output/add_data.h"
#include "bridge/output/host_reads.h"
#include "bridge/output/output_channel.h"
#include "bridge/output/properties_impl.h"
#include "bridge/output/value_label_list.h"
#include "core/finally.h"

namespace Kestrova::Utils::Kcom::OutputChannel {

class OutputFactoryImpl;

/// An output channel over a channel of the host. Almost all of it forwards one value; what it
/// decides itself is what counts as automatic, what a setup restores, how samples are added
/// (`IAddData`) and how a synchronous channel is aligned.
///
/// Made and owned by an `OutputFactoryImpl`, which outlives it. It holds its host channel until it
/// goes or another one is attached; attaching sets name, unit and colour to the defaults, and the
/// final values come after that. Without a host channel, what needs one is
/// `HostCode::invalidPointer`. An operation that fails in the middle is not rolled back.
///
/// Called on the host's thread, without a lock.
class OutputChannelImpl final : public OutputChannel {
  public:
    /// The factory isn't owned.
    OutputChannelImpl(OutputFactoryImpl& factoryOfChannel, CountedRef<HostApp> hostApp)
        : factory(factoryOfChannel), app(std::move(hostApp)) {}
    ~OutputChannelImpl() override;

    std::string getChannelIdText() const override { return Kcom::getChannelIdText(hostChannel); }
    std::uint32_t getIndex() const override { return static_cast<std::uint32_t>(index); }
    OutputChannelType getChannelType() const override { return Kcom::getChannelType(hostChannel); }

    void setName(const std::string& name) override { setText(&HostChannel::setName, name); }
    std::string getName() const override { return getText(&HostChannel::getName); }
    void setTextAttribute(const std::string& text) override {
        setText(&HostChannel::setTextAttribute, text);
    }
    std::string getTextAttribute() const override {
        return getText(&HostChannel::getTextAttribute);
    }
    void setExtTextAttribute(const std::string& text) override {
        setExt(&HostChannelExt::setTextAttribute, toHostText(text).c_str());
    }
    std::string getTextAttributeB() const override {
        return getText(&HostChannel::getTextAttributeB);
    }
    std::string getTextAttributeC() const override {
        return getText(&HostChannel::getTextAttributeC);
    }
    void setUnit(const std::string& unit) override { setText(&HostChannel::setUnit, unit); }
    std::string getUnit() const override { return getText(&HostChannel::getUnit); }
    void setUsed(bool used) override { setFlag(&HostChannel::setUsed, used); }
    bool isUsed() const override { return getFlag(&HostChannel::isUsed); }
    void setBoolAttributeA(bool flag) override { setFlag(&HostChannel::setBoolAttributeA, flag); }
    bool getBoolAttributeA() const override { return getFlag(&HostChannel::getBoolAttributeA); }
    void setBoolAttributeB(bool flag) override { setFlag(&HostChannel::setBoolAttributeB, flag); }
    bool getBoolAttributeB() const override { return getFlag(&HostChannel::getBoolAttributeB); }
    void setColor(std::uint32_t color) override { set(&HostChannel::setColor, color); }
    std::uint32_t getColor() const override { return get(&HostChannel::getColor); }
    void setDoubleAttributeA(double value) override {
        set(&HostChannel::setDoubleAttributeA, value);
    }
    double getDoubleAttributeA() const override { return get(&HostChannel::getDoubleAttributeA); }
    void setDoubleAttributeB(double value) override {
        set(&HostChannel::setDoubleAttributeB, value);
    }
    double getDoubleAttributeB() const override { return get(&HostChannel::getDoubleAttributeB); }
    void setDoubleAttributeC(double value) override {
        set(&HostChannel::setDoubleAttributeC, value);
    }
    double getDoubleAttributeC() const override { return get(&HostChannel::getDoubleAttributeC); }
    void setDoubleAttributeD(double value) override {
        set(&HostChannel::setDoubleAttributeD, value);
    }
    double getDoubleAttributeD() const override { return get(&HostChannel::getDoubleAttributeD); }
    void setScalarAttribute(double value) override { set(&HostChannel::setScalarAttribute, value); }
    std::int32_t getIntAttributeC() const override { return get(&HostChannel::getIntAttributeC); }
    std::int32_t getRateDivider() const override { return get(&HostChannel::getRateDivider); }
    void setIntAttributeA(std::int32_t value) override {
        set(&HostChannel::setIntAttributeA, value);
    }
    std::int32_t getIntAttributeA() const override { return get(&HostChannel::getIntAttributeA); }
    void setIntAttributeB(std::int32_t value) override {
        set(&HostChannel::setIntAttributeB, value);
    }
    std::int32_t getIntAttributeB() const override { return get(&HostChannel::getIntAttributeB); }
    void setExtIntAttribute(std::int32_t value) override {
        setExt(&HostChannelExt::setExtIntAttribute, value);
    }
    std::int32_t getExtIntAttribute() const override {
        return hostValue(ext(), &HostChannelExt::getExtIntAttribute);
    }
    void setExtDoubleAttributeA(double value) override {
        setExt(&HostChannelExt::setExtDoubleAttributeA, value);
    }
    double getExtDoubleAttributeA() const override {
        return hostValue(ext(), &HostChannelExt::getExtDoubleAttributeA);
    }
    void setExtDoubleAttributeB(double value) override {
        setExt(&HostChannelExt::setExtDoubleAttributeB, value);
    }
    double getExtDoubleAttributeB() const override {
        return hostValue(ext(), &HostChannelExt::getExtDoubleAttributeB);
    }

    void addValueLabel(const ValueLabel& label) override { labels().add(label); }
    void setValueLabel(const ValueLabel& label) override { labels().set(label); }
    FoundValueLabel getValueLabel(std::int32_t value) const override {
        return labels().find(value);
    }
    void removeValueLabel(std::int32_t value) override { labels().remove(value); }
    void removeValueLabelAt(std::uint64_t position) override { labels().removeAt(position); }
    void replaceValueLabelAt(std::uint64_t position, const ValueLabel& label) override {
        labels().replaceAt(position, label);
    }
    void setValueLabels(const std::vector<ValueLabel>& all) override { labels().setAll(all); }
    std::vector<ValueLabel> getValueLabels() const override { return labels().getAll(); }
    void clearValueLabels() override { labels().clear(); }
    std::int32_t getValueLabelCount() const override { return labels().getCount(); }

    void setDefaultName(const std::string& name) override;
    bool isAutomaticName() const override { return getName() == defaultName; }
    void setDefaultUnit(const std::string& unit) override;
    bool isAutomaticUnit() const override { return getUnit() == defaultUnit; }
    void setDefaultColor(std::uint32_t color) override;
    bool isAutomaticColor() const override { return getColor() == defaultColor; }

    void setExcluded(bool newExcluded) override { excluded = newExcluded; }
    bool isExcluded() const override { return excluded; }
    void setChannelIndices(const std::vector<std::int32_t>& indices) override;
    void setExpectedRate(float samplesPerSecond) override;
    float getExpectedRate() const override { return get(&HostChannel::getExpectedRate); }
    void setBufferAttribute(std::uint32_t value) override;
    std::uint32_t getBufferAttribute() const override {
        return get(&HostChannel::getBufferAttribute);
    }

    void setAxis(const AxisProperties& axis) override { setAxis(axis, false); }
    void setAxis(const AxisProperties& axis, bool flag) override { makeArray({&axis}, flag); }
    void setAxes(const AxisProperties& first, const AxisProperties& second) override {
        setAxes(first, second, false);
    }
    void setAxes(const AxisProperties& first, const AxisProperties& second, bool flag) override {
        makeArray({&first, &second}, flag);
    }
    bool isArray() const override { return getFlag(&HostChannel::isArray); }
    std::int32_t getArraySize() const override { return get(&HostChannel::getArraySize); }
    std::int32_t getDimensionCount() const override { return Kcom::getDimensionCount(hostChannel); }
    std::int32_t getFirstDimensionSize() const override {
        return Kcom::getFirstDimensionSize(hostChannel);
    }
    std::int32_t getSecondDimensionSize() const override {
        return Kcom::getSecondDimensionSize(hostChannel);
    }

    const Properties& getProperties() const override { return properties; }
    Properties& getProperties() override { return properties; }
    void applySetup(std::shared_ptr<Node>& node) override;
    void saveSetup(std::shared_ptr<Node>& node) const override;

    double getLastValue() const override { return strategy().getLastValue(); }
    void setValueRaw(const void* data, std::uint64_t size) override {
        write<&IAddData::setValueRaw>(data, size);
    }
    void setValueRawClamped(const void* data, std::uint64_t size) override {
        write<&IAddData::setValueRawClamped>(data, size);
    }
    void addSynchronousSample(const void* data, std::uint64_t size) override {
        write<&IAddData::addSynchronousSample>(data, size);
    }
    void addAsynchronousBlockSample(const void* data, std::uint64_t size, double time) override {
        write<&IAddData::addAsynchronousBlockSample>(data, size, time);
    }
    void addAsynchronousSample(const void* data, std::uint64_t size, double time) override {
        write<&IAddData::addAsynchronousSample>(data, size, time);
    }
    void addVariantSample(const void* data, std::uint64_t size, double time) override {
        write<&IAddData::addVariantSample>(data, size, time);
    }
    double samplesToSeconds(std::int64_t count) const override {
        return Kcom::samplesToSeconds(app, count);
    }

    // For the factory.

    /// Takes another host channel, or none, and describes the channel to it by the defaults.
    void attachHostChannel(CountedRef<HostChannel> channel);
    void setIndex(std::uint32_t newIndex) { index = static_cast<std::int32_t>(newIndex); }
    CountedRef<HostChannel> getHostChannel() const { return hostChannel; }
    /// Restores what `saveSetup` wrote; a value that was automatic becomes the new default.
    void loadValues(std::shared_ptr<Node>& node);
    /// Reports to the host how far a used synchronous channel lags behind the acquisition, which is
    /// at `absolute` samples; other channels are left alone. Throws `std::domain_error` if the
    /// host's buffer size or rate divider is 0.
    void alignWritePosition(std::int64_t absolute);
    /// Chooses the strategy for the host's present mode; the live value starts at 0.0.
    void selectAddData() {
        auto other = Kcom::OutputChannel::selectAddData(hostChannel, app);
        std::swap(addData, other);
        if (writesUnderWay != 0) {
            replaced.push_back(std::move(other));
        }
    }
    /// In mode 1 a change that touches the host's buffers releases them before and allocates them
    /// after it.
    void setRemountMode(std::int32_t mode) { remountMode = mode; }
    void allocateBuffers();

  private:
    template <typename T>
    T get(HostResult (HostChannel::*getter)(T*)) const {
        return hostValue(hostChannel, getter);
    }
    template <typename T>
    void set(HostResult (HostChannel::*setter)(T), T value) {
        callHost(hostChannel, setter, value);
    }
    bool getFlag(HostResult (HostChannel::*getter)(HostBool*)) const {
        return hostFlagOf(hostChannel, getter);
    }
    void setFlag(HostResult (HostChannel::*setter)(HostBool), bool flag) {
        callHost(hostChannel, setter, toHostBool(flag));
    }
    std::string getText(HostResult (HostChannel::*getter)(std::wstring*)) const {
        return hostTextOf(hostChannel, getter);
    }
    void setText(HostResult (HostChannel::*setter)(const wchar_t*), const std::string& text) {
        callHost(hostChannel, setter, toHostText(text).c_str());
    }
    CountedRef<HostChannelExt> ext() const { return queryHost<HostChannelExt>(hostChannel); }
    template <typename T>
    void setExt(HostResult (HostChannelExt::*setter)(T), T value) {
        callHost(ext(), setter, value);
    }
    ValueLabelList labels() const { return ValueLabelList(hostChannel); }
    IAddData& strategy() const {
        if (!addData) {
            raiseHostError(HostCode::invalidPointer);
        }
        return *addData;
    }

    /// The strategy lives until the write is over: the host may call back while it takes a sample,
    /// and have another one chosen.
    template <auto operation, typename... Values>
    void write(Values... values) {
        IAddData& chosen = strategy();
        ++writesUnderWay;
        const Finally over([this] {
            if (--writesUnderWay == 0 && !replaced.empty()) {
                replaced.clear();
            }
        });
        (chosen.*operation)(values...);
    }
    template <typename Change>
    void changeBuffers(const Change& change);
    void makeArray(std::initializer_list<const AxisProperties*> axes, bool flag);
    void persist(std::shared_ptr<Node>& node, bool saving) const;

    std::int32_t index = -1;
    CountedRef<HostChannel> hostChannel;
    OutputFactoryImpl& factory;
    CountedRef<HostApp> app;
    std::unique_ptr<IAddData> addData;
    std::uint32_t writesUnderWay = 0;
    std::vector<std::unique_ptr<IAddData>> replaced;  ///< since the outermost write began
    std::string defaultName = "Channel";
    std::string defaultUnit;
    std::uint32_t defaultColor = 0x00FFFF;
    bool excluded = false;
    PropertiesImpl properties;
    std::int32_t remountMode = 0;
};

}  // namespace Kestrova::Utils::Kcom::OutputChannel
