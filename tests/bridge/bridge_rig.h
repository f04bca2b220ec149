#pragma once

#include "bridge/output/output_factory_impl.h"
#include "setup/kestrova_kcom_node.h"
#include "tests/support/scripted_host.h"

/// A factory at a scripted host.
struct BridgeRig {
    using Factory = Kestrova::Utils::Kcom::OutputChannel::OutputFactoryImpl;
    using Channel = std::shared_ptr<Kestrova::Utils::Kcom::OutputChannel::OutputChannel>;
    using Type = Kestrova::Utils::Kcom::OutputChannel::OutputChannelType;
    using Kind = Kestrova::Utils::Kcom::OutputChannel::SampleRateKind;

    static constexpr Type canType{14, Kind::Asynchronous};

    ScriptedHost host;
    CountedRef<HostApp> app{&host.app};
    Factory factory;

    BridgeRig() {
        factory.attachHost(app, std::make_shared<std::wstring>(L"{id}"), &host.groupOfPlugins);
    }

    Channel create(Type type = canType) { return factory.createChannel(type, nullptr); }
    ScriptedChannel& mounted(std::size_t place) { return *host.groupOfPlugins.mounted.at(place); }
    static auto nodeOver(ScriptedDocument& document) {
        return std::make_shared<Kestrova::Utils::Kcom::KestrovaKCOMNodeCreator>(
            CountedRef<HostDocument>(&document), CountedRef<HostElement>(document.root));
    }
};

class BridgeTest : public ::testing::Test, protected BridgeRig {};
