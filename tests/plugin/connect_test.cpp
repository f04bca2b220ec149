#include "plugin/identity.h"
#include "tests/plugin/plugin_bench.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* groupCalls = "App.getData Data.getChannelGroups ChannelGroups.getGroup";

class ConnectTest : public PluginTest {
  protected:
    std::string connectAt(std::int32_t major, std::int32_t minor) {
        host.app.version = {9, major, minor, 9, 9};
        host.app.errors.clear();
        return connect();
    }
    /// Whether the object reaches the host, whatever `connect` answered.
    std::string useHost() {
        return outcomeOf([&] { return plugin->onGetData(); });
    }
};

TEST_F(ConnectTest, HostIsAskedForTheGroupTwiceAndThenForItsVersions) {
    std::string answer;
    EXPECT_EQ(callsOf([&] { answer = connect(); }),
              groupCalls + std::string(" ") + groupCalls + " App.getVersion App.getVersionTriple");
    EXPECT_EQ(answer, "0");
    EXPECT_THAT(host.script.calls(), testing::Contains("HostChannelGroups::getGroup(8)").Times(2));
}

TEST_F(ConnectTest, HostThatIsTooOldIsToldSoAndStaysConnected) {
    const std::wstring text = L"Tessel3 Plugin \"CMP\" needs Kestrova X3 SP4 or newer.";
    for (const auto& [major, minor] : {std::pair{3, 3}, {2, 9}, {3, -1}, {-1, -1}, {0, 4}}) {
        EXPECT_EQ(connectAt(major, minor), "80004004") << major << '.' << minor;
        EXPECT_THAT(host.app.errors, ElementsAre(text));
        EXPECT_EQ(useHost(), "0");
    }
    host.app.leavesVersion = true;
    EXPECT_EQ(connectAt(4, 0), "80004004");
    EXPECT_THAT(host.app.errors, ElementsAre(text));
    EXPECT_EQ(host.script.operations().back(), "HostApp::writeError") << "and no further question";
}

TEST_F(ConnectTest, HostOfThisVersionOrALaterOnePasses) {
    for (const auto& [major, minor] : {std::pair{3, 4}, {3, 5}, {4, 0}, {4, -1}}) {
        EXPECT_EQ(connectAt(major, minor), "0") << major << '.' << minor;
        EXPECT_THAT(host.app.errors, IsEmpty());
    }
}

TEST_F(ConnectTest, SecondHostTakesTheFirstOnesPlace) {
    ScriptedHost second;
    EXPECT_EQ(connect(), "0");
    EXPECT_EQ(outcomeOf([&] { return plugin->onConnectHost(&second.app); }), "0");
    EXPECT_EQ(host.app.references(), 0);
    EXPECT_EQ(host.groupOfPlugins.references(), 0);
    EXPECT_EQ(callsOf([&] { plugin->onGetData(); }), "");
    EXPECT_EQ(outcomeOf([&] { return plugin->onClearSetup(); }), "0");
    dropPlugin();
    EXPECT_THAT(second.script.referenceFaults(), IsEmpty());
}

TEST_F(ConnectTest, MissingObjectIsAnInvalidPointerAndALaterConnectWorks) {
    EXPECT_EQ(outcomeOf([&] { return plugin->onConnectHost(nullptr); }), "call 80004003");
    for (const char* operation :
         {"HostApp::getData", "HostData::getChannelGroups", "HostChannelGroups::getGroup"}) {
        host.script.nullOperation(operation);
        EXPECT_EQ(connect(), "call 80004003") << operation;
        host.script.heal();
        EXPECT_EQ(connect(), "0");
    }
    host.data.groups.pluginGroup = &host.clock;
    EXPECT_EQ(connect(), "call 80004003") << "the entry is no group of plug-ins";
}

TEST_F(ConnectTest, ObjectAnswersForItsInterfacesAndNoOthers) {
    const auto refuses = [](HostObject& asked, const InterfaceId& id) {
        void* found = &asked;
        return asked.queryInterface(id, &found) == HostCode::noInterface && found == nullptr;
    };
    for (HostObject* const asked : {object.get(), static_cast<HostObject*>(plugin.get()),
                                    static_cast<HostObject*>(events.get())}) {
        CountedRef<HostObject> base;
        CountedRef<IPlugin2> oldest;
        const CountedRef<HostObject> counted(asked);
        EXPECT_EQ(counted.queryTo(base), 0);
        EXPECT_EQ(base, object);
        EXPECT_EQ(counted.queryTo(oldest), 0);
        EXPECT_EQ(oldest.get(), plugin.get());
        EXPECT_TRUE(refuses(*asked, HostApp::id));
    }
    std::uint32_t count = 1;
    EXPECT_EQ(plugin->getTypeInfoCount(&count), 0);
    EXPECT_EQ(count, 0U);
    EXPECT_LT(events->invoke(1, 0, 0, nullptr, 0, nullptr), 0);
}

/// The object's outer one answers and counts for it; only the inner side is its own.
TEST_F(ConnectTest, PartOfAnotherObjectLeavesQueriesAndCountsToThatOne) {
    ScriptedChannelList outer(host.script);
    const auto inner = CountedRef<HostObject>::adopt(Plugin::create(&outer, port, counter));
    {
        CountedRef<IPlugin4> part;
        ASSERT_EQ(inner.queryTo(part), 0);
        EXPECT_EQ(outer.references(), 1);
        CountedRef<HostChannelList> whole;
        EXPECT_EQ(part.queryTo(whole), 0);
        EXPECT_EQ(whole.get(), &outer);
    }
    EXPECT_EQ(outer.references(), 0);
}

}  // namespace
