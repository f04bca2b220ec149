#pragma once

#include "host/host_error.h"
#include "host/plugin.h"
#include "station/host/counted.h"

namespace station {

/// A plug-in that records what its host asks of it, fails where a test says so, and has a place for
/// what a test wants to happen in a call.
class FakePlugin final : public Counted<IPlugin3, IPlugin4, CaptureStatistics> {
  public:
    static constexpr std::uint32_t notBegun = 0xFFFFFFFF;

    bool leads = false;
    std::uint32_t leaderSamples = notBegun;  ///< by a leading clock
    std::vector<ClockStatistics> clocks;
    std::vector<std::string> calls;
    /// What happens in the call of that name, in place of success.
    std::map<std::string, std::function<HostResult()>> actions;
    std::vector<std::string> arguments;  ///< of the last event with an array

    HostResult onConnectHost(HostApp*) override { return enter("connect"); }
    HostResult onStartAcquisition() override { return enter("start"); }
    HostResult onPrepareAcquisition() override { return enter("prepare"); }
    HostResult onGetData() override { return enter("onGetData"); }
    HostResult onClearSetup() override { return enter("clear"); }
    HostResult onDisconnectChannels() override { return enter("disconnect"); }
    HostResult position33(std::uint32_t* low, std::uint32_t* high) override {
        *low = leaderSamples;
        *high = leaderSamples == notBegun ? notBegun : 0;
        return HostCode::success;
    }
    HostResult onEvent(std::int32_t event, const HostVariant& input, HostVariant* result) override {
        if (input.type == HostVariantType::VariantArray) {
            arguments.clear();
            HostVariant element;
            for (std::int32_t i = 0; input.variants->getElement(i, &element) >= 0; ++i) {
                const bool isObject = element.type == HostVariantType::Object;
                arguments.push_back(isObject ? "object" : std::to_string(element.boolean));
            }
        }
        if (event == 136) {
            result->type = HostVariantType::Float;
            result->float32 = 0.2F;
        }
        return enter(std::to_string(event));
    }

    HostResult getTypeInfoCount(std::uint32_t*) override { return 0; }
    HostResult getTypeInfo(std::uint32_t, std::uint32_t, HostObject**) override { return -1; }
    HostResult getIdsOfNames(const wchar_t* const*, std::uint32_t, std::uint32_t,
                             std::int32_t*) override {
        return -1;
    }
    HostResult invoke(std::int32_t, std::uint32_t, std::uint16_t, const HostVariant*, std::uint32_t,
                      HostVariant*) override {
        return -1;
    }
    HostResult position3() override { return 0; }
    HostResult position5() override { return 0; }
    HostResult position7() override { return 0; }
    HostResult position8() override { return 0; }
    HostResult position9() override { return 0; }
    HostResult position10() override { return 0; }
    HostResult position11() override { return 0; }
    HostResult position14(void*, std::uint16_t*) override { return 0; }
    HostResult position15() override { return 0; }
    HostResult position16() override { return 0; }
    HostResult position17(std::uint16_t*) override { return 0; }
    HostResult position18() override { return 0; }
    HostResult position19() override { return 0; }
    HostResult position20() override { return 0; }
    HostResult position21() override { return 0; }
    HostResult position22() override { return 0; }
    HostResult position23() override { return 0; }
    HostResult position24() override { return 0; }
    HostResult position25() override { return 0; }
    HostResult position26() override { return 0; }
    HostResult position27() override { return 0; }
    HostResult position28() override { return 0; }
    HostResult position29(std::int32_t*) override { return 0; }
    HostResult position30() override { return 0; }
    HostResult position31() override { return 0; }
    HostResult position32(std::uint16_t* answer) override {
        *answer = leads ? 1 : 0;
        return 0;
    }
    HostResult getDroppedFrames(std::uint64_t* frames) override {
        *frames = droppedFrames;
        return HostCode::success;
    }
    HostResult getChannels(ChannelStatistics*, std::uint32_t*) override {
        return HostCode::notImplemented;
    }
    HostResult getClocks(ClockStatistics* entries, std::uint32_t* count) override {
        std::copy_n(clocks.begin(), std::min<std::size_t>(*count, clocks.size()), entries);
        *count = static_cast<std::uint32_t>(clocks.size());
        return HostCode::success;
    }
    HostResult position34() override { return 0; }
    HostResult position35() override { return 0; }
    HostResult position36() override { return 0; }
    HostResult position37() override { return 0; }
    HostResult position38(void*, std::uint16_t*) override { return 0; }
    HostResult position39() override { return 0; }

    std::uint64_t droppedFrames = 0;

  private:
    HostResult enter(const std::string& name) {
        calls.push_back(name);
        const auto action = actions.find(name);
        return action == actions.end() ? HostCode::success : action->second();
    }
};

}  // namespace station
