#include "fuzz/input.h"
#include "fuzz/require.h"
#include "host/module_list.h"
#include "tests/plugin/plugin_rig.h"

// The whole component with its real clocks, at a host whose calls, answers and network come from
// the input: a row of steps. Whatever a host does, nothing crashes, no reference is lost, and at
// the end of a measurement each message is in one count.

namespace {

constexpr std::array<std::int32_t, 26> eventNumbers = {105, 106, 110, 111, 113, 115, 117, 118, 129,
                                                       130, 131, 133, 134, 136, 154, 156, 157, 158,
                                                       159, 169, 173, 177, 178, 180, 182, 186};
constexpr std::array<const wchar_t*, 4> types = {L"CAN combo", L"LIN combo", L"NeoviFire3",
                                                 L"no type"};
constexpr std::size_t mostSteps = 64;
constexpr std::size_t mostModules = 6;

class Life : PluginRig {
  public:
    explicit Life(Input& steps) : input(steps) {
        equip({DeviceTypeInfo::canComboId, DeviceTypeInfo::linComboId}, input.byte() % 2 != 0);
        object.queryTo(modules);
        object.queryTo(statistics);
    }

    void run() {
        for (std::size_t i = 0; i < mostSteps && !input.isAtEnd(); ++i) {
            step();
        }
        host.script.heal();
        end();
    }

  private:
    void step() {
        switch (input.byte() % 12) {
            case 0:
                feed.push(input.bytes());
                break;
            case 1:
                feed.push(canFrame(input.word() / 256.0 - 16.0, input.byte()));
                break;
            case 2:
                waitForCapture();
                break;
            case 3:
                counter.count += input.word();
                break;
            case 4:
                host.clock.seconds = input.word() / 256.0;
                host.data.position = static_cast<std::int32_t>(host.clock.seconds * 1000);
                break;
            case 5:
                sendEvent();
                break;
            case 6:
                operate();
                break;
            case 7:
                changeModules();
                break;
            case 8:
                load();
                break;
            case 9:
                isOpen = isReading = startMeasurement() == "0";
                break;
            case 10:
                end();
                break;
            default:
                host.script.failCall(input.byte() + 1U, input.byte() % 2 != 0
                                                            ? HostCode::failed
                                                            : CallScript::noObject);
                break;
        }
        host.script.forget();
    }

    void waitForCapture() {
        if (isReading) {
            require(feed.drain(), "the capture thread doesn't read");
        }
    }

    void sendEvent() {
        const std::int32_t number = eventNumbers[input.byte() % eventNumbers.size()];
        HostVariant value;
        value.type = HostVariantType(input.byte() % 32);
        if (value.type == HostVariantType::Boolean) {
            value = variantOf(input.byte() % 2 != 0);
        } else if (value.type == HostVariantType::Object) {
            value = variantOf(&host.app);
        } else {
            value = {};
        }
        const std::string outcome = event(number, value);
        if (number == 105) {
            isOpen = outcome == "0";
        }
        if (number == 105 || number == 130) {
            isReading = isOpen && outcome == "0";
        }
    }

    void operate() {
        outcomeOf([&] {
            switch (input.byte() % 6) {
                case 0:
                    return plugin->onPrepareAcquisition();
                case 1:
                    return plugin->onStartAcquisition();
                case 2:
                    return plugin->onClearSetup();
                case 3:
                    return plugin->onDisconnectChannels();
                case 4: {
                    std::uint32_t low = input.byte();
                    std::uint32_t high = 0;
                    return plugin->position33(&low, &high);
                }
                default:
                    return plugin->onGetData();
            }
        });
    }

    void changeModules() {
        std::vector<ModuleState> states;
        outcomeOf([&] { return modules->getStates(&states); });
        const std::uint32_t place = input.byte() % 8;
        outcomeOf([&] {
            switch (input.byte() % 5) {
                case 0:
                    return states.size() < mostModules
                               ? modules->addModule(types[input.byte() % types.size()])
                               : HostCode::success;
                case 1:
                    return modules->removeModule(place);
                case 2:
                    return modules->setType(place, types[input.byte() % types.size()]);
                case 3:
                    return modules->setConfigId(place, input.word());
                default:
                    return modules->matchOutputs();
            }
        });
    }

    /// Settings and setup of any numbers.
    void load() {
        ScriptedDocument& document = settingsWith({0, 1});
        for (auto* const module : document.root->children.back()->children) {
            for (auto& [key, text] : module->values) {
                const std::string chosen = input.text();
                if (!chosen.empty()) {
                    text = std::wstring(chosen.begin(), chosen.end());
                }
            }
        }
        settings(document, false);
        setup(document, false);
    }

    void end() {
        const bool wasGood = event(130) == "0";
        isReading = isOpen && wasGood;
        std::array<ChannelStatistics, 200> channels;
        std::uint32_t count = channels.size();
        require(statistics->getChannels(channels.data(), &count) == HostCode::success,
                "there are no counts");
        for (std::size_t i = 0; wasGood && i < std::min<std::size_t>(count, channels.size()); ++i) {
            const ChannelStatistics& c = channels[i];
            require(c.queued == c.delivered + c.beforeStart + c.afterEnd + c.getLost(),
                    "the counts don't add up");
        }
    }

    Input& input;
    CountedRef<ModuleList> modules;
    CountedRef<CaptureStatistics> statistics;
    bool isOpen = false;     ///< the interfaces
    bool isReading = false;  ///< the capture thread
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    GTEST_FLAG_SET(break_on_failure, true);
    Input input(data, size);
    Life(input).run();
    return 0;
}
