#include <functional>

#include "tests/plugin/plugin_bench.h"

namespace {

// Nobody takes a failure of the host for one of the program's own.
static_assert(!std::is_base_of_v<std::exception, HostCallException>);
static_assert(!std::is_base_of_v<std::exception, HostArrayException>);

/// A plug-in's whole life at a host, step by step, in which a call of the host goes wrong.
class FailingHost : public PluginBench {
  public:
    FailingHost() {
        host.gnssDevices.infos = {{}};
        host.gnssDevices.infos[0].name = L"satellites";
        host.clock.seconds = 0.5;
    }
    /// What came out of the first step that didn't succeed, "0" if all did.
    std::string live() {
        saved = &newDocument();
        savedSetup = &newDocument();
        for (const auto& [name, step] : steps) {
            stepReached = name;
            if (std::string outcome = step(); outcome != "0") {
                return outcome;
            }
        }
        return "0";
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
    std::int32_t delivered = 0;

  private:
    std::string start() {
        for (ScriptedChannel* const channel : host.groupOfPlugins.mounted) {
            channel->used = hostTrue;
        }
        return startMeasurement();
    }
    std::string acquire() {
        feed.push(canFrame(0.5));
        EXPECT_TRUE(feed.drain());
        const std::int32_t before = written();
        std::string outcome = event(117);
        delivered = written() - before;
        return outcome;
    }
    std::int32_t written() const {
        std::int32_t samples = 0;
        for (const ScriptedChannel* const channel : host.groupOfPlugins.mounted) {
            samples += channel->writePosition;
        }
        return samples;
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
        {"start", [this] { return start(); }},
        {"acquire", [this] { return acquire(); }},
        {"read", [this] { return outcomeOf([this] { return plugin->onGetData(); }); }},
        {"others", [this] { return useOtherEvents(); }},
        {"end", [this] { return outcomeOf([this] { return plugin->onDisconnectChannels(); }); }},
    };
    ScriptedChannelList list{host.script};
    Document* saved = nullptr;
    Document* savedSetup = nullptr;
};

TEST(FailingHostTest, EachFailedCallComesOutAndTheNextLifeWorks) {
    std::size_t failures = 0;
    for (bool met = true; met; failures += met ? 1 : 0) {
        FailingHost bench;
        bench.host.script.failCall(failures + 1, HostCode::failed);
        const std::string outcome = bench.live();
        met = bench.host.script.faultsMet() != 0;
        ASSERT_EQ(outcome, met ? "call 80004005" : "0")
            << bench.stepReached << ' ' << bench.host.script.calls().back();
        bench.recover();
        ASSERT_EQ(bench.live(), "0") << failures << ' ' << bench.stepReached;
        ASSERT_EQ(bench.delivered, 1) << failures;
        ASSERT_FALSE(testing::Test::HasFailure()) << failures;
    }
    EXPECT_GT(failures, 500U);
}

TEST(FailingHostTest, MissingObjectIsAnInvalidPointerOrTakenAsNone) {
    const std::size_t calls = [] {
        FailingHost healthy;
        EXPECT_EQ(healthy.live(), "0");
        return healthy.host.script.calls().size();
    }();
    std::size_t met = 0;
    for (std::size_t number = 1; number <= calls; ++number) {
        FailingHost bench;
        bench.host.script.nullCall(number);
        const std::string outcome = bench.live();
        met += bench.host.script.faultsMet();
        const std::string last = bench.host.script.calls().back();
        const bool isCopy = outcome != "0" && last == "HostVariantArray::copy()";
        ASSERT_THAT(outcome, testing::AnyOf("0", isCopy ? "call 80004005" : "call 80004003"))
            << number << ' ' << bench.stepReached << ' ' << last;
        bench.recover();
        ASSERT_EQ(bench.live(), "0") << number << ' ' << bench.stepReached;
        ASSERT_EQ(bench.delivered, 1) << number;
        ASSERT_FALSE(testing::Test::HasFailure()) << number;
    }
    EXPECT_GT(met, 100U);
}

}  // namespace
