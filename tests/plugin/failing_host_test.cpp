#include "tests/plugin/plugin_rig.h"

namespace {

// Nobody takes a failure of the host for one of the program's own.
static_assert(!std::is_base_of_v<std::exception, HostCallException>);
static_assert(!std::is_base_of_v<std::exception, HostArrayException>);

/// A plug-in's whole life at a host, step by step, in which a call of the host goes wrong.
class FailingHost : public PluginRig {
  public:
    FailingHost() {
        host.gnssDevices.infos = {{1, L"satellites"}};
        host.clock.seconds = 0.5;
    }
    /// What came out of the first step that didn't succeed, "success" if all did.
    std::string live() {
        saved = &newDocument();
        savedSetup = &newDocument();
        for (const auto& [name, step] : steps) {
            stepReached = name;
            if (std::string outcome = step(); outcome != "success") {
                return outcome;
            }
        }
        return "success";
    }
    /// A load that failed leaves an object that loads nothing any more: the host makes another.
    void recover() {
        host.script.heal();
        host.script.forget();
        if (stepReached == "clear" || stepReached == "load") {
            makePlugin();
        }
    }

    std::string stepReached;
    std::ptrdiff_t delivered = 0;

  private:
    std::string acquire() {
        feed.push(canFrame(0.5));
        EXPECT_TRUE(feed.drain());
        host.script.forget();
        std::string outcome = event(117);
        const auto calls = host.script.calls();
        delivered = std::count(calls.begin(), calls.end(), "HostChannel::advanceWritePosition(1)");
        return outcome;
    }
    std::string useOtherEvents() {
        return outcomeOf([this] {
            HostVariant result;
            for (const std::int32_t number : {130, 106, 111, 129, 133, 134, 136, 186}) {
                events->onEvent(number, {}, &result);
            }
            std::uint32_t low = 0;
            std::uint32_t high = 0;
            plugin->position33(&low, &high);
            return events->onEvent(118, variantOf(&list), &result) +
                   events->onEvent(131, variantOf(&host.makeChannel()), &result);
        });
    }

    const std::vector<std::pair<std::string, std::function<std::string()>>> steps = {
        {"connect", [this] { return connect(); }},
        {"settings",
         [this] { return settings(settingsWith({DeviceTypeInfo::canComboId}), false); }},
        {"clear", [this] { return outcomeOf([this] { return plugin->onClearSetup(); }); }},
        {"save", [this] { return settings(*saved, true); }},
        {"save", [this] { return setup(*savedSetup, true); }},
        {"settings", [this] { return settings(*saved, false); }},
        {"load", [this] { return setup(*savedSetup, false); }},
        {"devices", [this] { return event(177, variantOf(&host.gnssCollection)); }},
        {"start",
         [this] {
             for (ScriptedChannel* const channel : host.groupOfPlugins.mounted) {
                 channel->used = hostTrue;
             }
             return startMeasurement();
         }},
        {"acquire", [this] { return acquire(); }},
        {"read", [this] { return outcomeOf([this] { return plugin->onGetData(); }); }},
        {"others", [this] { return useOtherEvents(); }},
        {"end", [this] { return outcomeOf([this] { return plugin->onDisconnectChannels(); }); }},
    };
    ScriptedChannelList list{host.script};
    Document* saved = nullptr;
    Document* savedSetup = nullptr;
};

/// Whether a call in a life has met the fault: a failure, or an object that isn't handed over.
bool livesAgainAfter(std::size_t number, bool isNull) {
    FailingHost rig;
    auto& script = rig.host.script;
    script.failCall(number, isNull ? CallScript::noObject : HostCode::failed);
    const std::string outcome = rig.live();
    const bool met = script.faultsMet() != 0;
    const std::string last = script.calls().back();
    const bool isGeneral = !isNull || last == "HostVariantArray::copy()";
    if (outcome != "success" || (met && !isNull)) {
        EXPECT_EQ(outcome, isGeneral ? "call failed" : "call invalidPointer")
            << number << ' ' << rig.stepReached << ' ' << last;
        EXPECT_TRUE(met);
    }
    rig.recover();
    EXPECT_EQ(rig.live(), "success") << number << ' ' << rig.stepReached;
    EXPECT_EQ(rig.delivered, 1) << number;
    return met;
}

TEST(FailingHostTest, EachFailedCallAndMissingObjectComesOutAndTheNextLifeWorks) {
    std::size_t failures = 0;
    while (livesAgainAfter(failures + 1, false)) {
        ++failures;
        ASSERT_FALSE(testing::Test::HasFailure());
    }
    EXPECT_GT(failures, 500U);
    std::size_t missing = 0;
    for (std::size_t number = 1; number <= failures; ++number) {
        missing += livesAgainAfter(number, true) ? 1 : 0;
        ASSERT_FALSE(testing::Test::HasFailure());
    }
    EXPECT_GT(missing, 100U);
}

}  // namespace
