#pragma once

#include <gmock/gmock.h>

#include <memory>
#include <string>

#include "bridge/output/output_factory_impl.h"
#include "setup/kestrova_kcom_node.h"
#include "tests/support/scripted_host.h"

/// The code of the host failure that `action` raises, 0 if it raises none.
template <typename Action>
HostResult hostCodeOf(Action action) {
    try {
        action();
    } catch (const HostCallException& error) {
        return error.getCode();
    }
    return HostCode::success;
}

/// Says at its end whether a reference to an object of the host was kept or given back too often.
struct ReferenceCheck {
    ScriptedHost& host;
    explicit ReferenceCheck(ScriptedHost& hostToCheck) : host(hostToCheck) {}
    ~ReferenceCheck() { EXPECT_THAT(host.script.referenceFaults(), ::testing::IsEmpty()); }
};

/// A factory at a scripted host. Members end in reverse order, so the check comes last.
struct BridgeBench {
    using Factory = Kestrova::Utils::Kcom::OutputChannel::OutputFactoryImpl;
    using Channel = std::shared_ptr<Kestrova::Utils::Kcom::OutputChannel::OutputChannel>;
    using Type = Kestrova::Utils::Kcom::OutputChannel::OutputChannelType;
    using Kind = Kestrova::Utils::Kcom::OutputChannel::SampleRateKind;

    static constexpr Type canType{14, Kind::Asynchronous};

    ScriptedHost host;
    ReferenceCheck check{host};
    CountedRef<HostApp> app{&host.app};
    Factory factory;

    BridgeBench() {
        factory.attachHost(app, std::make_shared<std::wstring>(L"{id}"), &host.groupOfPlugins);
    }

    Channel create(Type type = canType) { return factory.createChannel(type, nullptr); }
    ScriptedChannel& mounted(std::size_t place) { return *host.groupOfPlugins.mounted.at(place); }
    /// What `action` calls, in short: "App.getData, Channel.setName("a")".
    template <typename Action>
    std::string callsOf(Action action) {
        host.script.forget();
        action();
        std::string text;
        for (std::string call : host.script.calls()) {
            call = call.substr(4).replace(call.find("::") - 4, 2, ".");
            text += (text.empty() ? "" : ", ") +
                    (call.ends_with("()") ? call.substr(0, call.size() - 2) : call);
        }
        return text;
    }
    static auto nodeOver(ScriptedDocument& document) {
        return std::make_shared<Kestrova::Utils::Kcom::KestrovaKCOMNodeCreator>(
            CountedRef<HostDocument>(&document), CountedRef<HostElement>(document.root));
    }
};

class BridgeTest : public ::testing::Test, protected BridgeBench {};
