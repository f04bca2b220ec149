#include "tests/plugin/plugin_bench.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ConnectTest : public PluginTest {
  protected:
    std::string connectAt(std::int32_t major, std::int32_t minor) {
        host.app.version = {9, major, minor, 9, 9};
        host.app.errors.clear();
        return connect();
    }
};

TEST_F(ConnectTest, HostThatIsTooOldIsToldSoAndStaysConnected) {
    const std::wstring text = L"Tessel3 Plugin \"CMP\" needs Kestrova X3 SP4 or newer.";
    for (const auto& [major, minor] : {std::pair{3, 3}, {2, 9}, {3, -1}, {-1, -1}, {0, 4}}) {
        EXPECT_EQ(connectAt(major, minor), "80004004") << major << '.' << minor;
        EXPECT_THAT(host.app.errors, ElementsAre(text));
        EXPECT_EQ(outcomeOf([&] { return plugin->onGetData(); }), "0");
    }
    for (const auto& [major, minor] : {std::pair{3, 4}, {3, 5}, {4, 0}, {4, -1}}) {
        EXPECT_EQ(connectAt(major, minor), "0") << major << '.' << minor;
        EXPECT_THAT(host.app.errors, IsEmpty());
    }
    host.app.leavesVersion = true;
    EXPECT_EQ(connectAt(4, 0), "80004004");
    EXPECT_THAT(host.app.errors, ElementsAre(text));
    EXPECT_THAT(host.script.calls().back(), testing::StartsWith("HostApp::writeError"))
        << "and no further question";
}

TEST_F(ConnectTest, ObjectAnswersForItsInterfacesAndNoOthers) {
    for (HostObject* const asked : {object.get(), static_cast<HostObject*>(plugin.get()),
                                    static_cast<HostObject*>(events.get())}) {
        const CountedRef<HostObject> counted(asked);
        CountedRef<HostObject> base;
        CountedRef<IPlugin2> oldest;
        EXPECT_EQ(counted.queryTo(base) + counted.queryTo(oldest), 0);
        EXPECT_TRUE(base == object && oldest.get() == plugin.get());
        void* found = asked;
        EXPECT_EQ(asked->queryInterface(HostApp::id, &found), HostCode::noInterface);
        EXPECT_EQ(found, nullptr);
    }
    std::uint32_t count = 1;
    EXPECT_EQ(plugin->getTypeInfoCount(&count), 0);
    EXPECT_EQ(count, 0U);
    EXPECT_LT(events->invoke(1, 0, 0, nullptr, 0, nullptr), 0);
}

}  // namespace
