#pragma once

#include "plugin/plugin_positions.h"
#include "station/host/counted.h"

namespace station {

/// A plug-in that records what its host asks of it, fails where a test says so, and has a place for
/// what a test wants to happen in a call.
class FakePlugin final
    : public Counted<PluginPositions, WithoutLateBinding<IPlugin4>, CaptureStatistics> {
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
        return give(high, leaderSamples == notBegun ? notBegun : 0);
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

    HostResult position32(std::uint16_t* answer) override {
        return give(answer, std::uint16_t{leads});
    }
    HostResult getDroppedFrames(std::uint64_t* frames) override {
        return give(frames, droppedFrames);
    }
    HostResult getChannels(ChannelStatistics*, std::uint32_t*) override {
        return HostCode::notImplemented;
    }
    HostResult getClocks(ClockStatistics* entries, std::uint32_t* count) override {
        std::copy_n(clocks.begin(), std::min<std::size_t>(*count, clocks.size()), entries);
        return give(count, static_cast<std::uint32_t>(clocks.size()));
    }
    std::uint64_t droppedFrames = 0;

  private:
    HostResult enter(const std::string& name) {
        calls.push_back(name);
        const auto action = actions.find(name);
        return action == actions.end() ? HostCode::success : action->second();
    }
};

}  // namespace station
