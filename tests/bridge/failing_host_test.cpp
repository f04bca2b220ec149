#include <gmock/gmock.h>

#include <stdexcept>

#include "bridge/input/input_manager_impl.h"
#include "bridge/output/axis_properties.h"
#include "tests/bridge/bridge_bench.h"

namespace {

using Kestrova::Utils::Kcom::AxisPropertiesFloat;
using Kestrova::Utils::Kcom::InputChannel::InputManagerImpl;

/// All that the bridge does at a host, at which each call can be made to go wrong.
class FailingHost : public BridgeBench {
  public:
    FailingHost() { inputs.attachHost(app, nullptr); }

    HostResult useAll() {
        return hostCodeOf([&] {
            describe();
            write();
            read();
            load();
        });
    }

    /// What brings a plug-in back after a failure, whatever failed: a new setup.
    void recover() {
        host.script.heal();
        held.reset();
        inputs.clear();
        factory.clear();
        try {
            factory.endLoadSetup();
        } catch (const std::runtime_error&) {
            // It was not in a load.
        }
    }

  private:
    void describe() {
        held = create();
        create({7, Kind::Synchronous});
        factory.setChannelGroupName({0}, "CAN");
        held->setDefaultName("a");
        held->setValueLabels({{1, "on", 2}});
        held->setValueLabel({1, "off", 3});
        AxisPropertiesFloat axis;
        axis.setSize(1);
        held->setAxes(axis, axis);
        factory.setRemountMode(1);
        held->setExpectedRate(held->getExpectedRate());
        held->setExtDoubleAttributeA(1.0);
        held->getProperties().addNode("p");
        held->getProperties().getNode("p");
    }
    void write() {
        const std::uint8_t bytes[16] = {};
        factory.refreshAddData();
        factory.claimChannels(factory.hasActiveChannels());
        held->addAsynchronousSample(bytes, 16, 0.0);
        held->addVariantSample(bytes, 13, 0.0);
        factory.alignToAcquisition();
        held->samplesToSeconds(1);
    }
    void read() {
        const auto channel = inputs.getChannel("8:0;0");
        inputs.update();
        if (channel->isAttached()) {
            channel->readDouble(0);
        }
        inputs.rebindChannels();
    }
    void load() {
        const auto node = nodeOver(host.makeDocument(L"Setup", true));
        inputs.saveSetup(node);
        factory.saveSetup(node);
        factory.beginLoadSetup();
        inputs.loadSetup(node);
        factory.loadSetup(node);
        held = factory.getOrCreateChannel(0, canType, nullptr);
        factory.endLoadSetup();
        factory.removeChannel(held);
    }

    InputManagerImpl inputs;
    Channel held;
};

TEST(FailingHostTest, EachFailedCallIsRaisedAndNothingIsLeftBehind) {
    std::size_t failures = 0;
    for (bool met = true; met; failures += met ? 1 : 0) {
        FailingHost bench;
        bench.host.script.failCall(failures + 1, HostCode::failed);
        const HostResult code = bench.useAll();
        met = bench.host.script.faultsMet() != 0;
        ASSERT_EQ(code, met ? HostCode::failed : HostCode::success)
            << bench.host.script.calls().back();
        bench.recover();
        ASSERT_EQ(bench.useAll(), HostCode::success) << failures;
    }
    EXPECT_GT(failures, 150U);
}

TEST(FailingHostTest, MissingObjectIsAnInvalidPointerOrTakenAsNone) {
    FailingHost healthy;
    healthy.useAll();
    const std::size_t calls = healthy.host.script.calls().size();
    for (std::size_t number = 1; number <= calls; ++number) {
        FailingHost bench;
        bench.host.script.nullCall(number);
        const HostResult code = bench.useAll();
        ASSERT_TRUE(code == HostCode::success || code == HostCode::invalidPointer) << number;
        bench.recover();
        ASSERT_EQ(bench.useAll(), HostCode::success) << number;
    }
}

TEST(FailingHostTest, FailedQueryForTheExtensionIsRaised) {
    FailingHost bench;
    bench.host.script.failOperation("HostChannel::queryInterface", HostCode::failed);
    EXPECT_EQ(bench.useAll(), HostCode::failed);
    bench.recover();
    bench.host.script.failOperation("HostChannel::queryInterface", HostCode::noInterface);
    EXPECT_EQ(bench.useAll(), HostCode::invalidPointer);
}

}  // namespace
