#include "plugin/plugin.h"
#include "tests/support/headless_rig.h"
#include "tests/support/scripted_variants.h"
#include "tests/ui/window_rig.h"

namespace {

using namespace Kestrova::Tessel;
using Kestrova::RT::Core::InvalidParameterException;
using testing::ElementsAre;
using testing::IsEmpty;

/// A whole plug-in whose host opens and closes its windows by event.
class WindowEventsTest : public testing::Test {
  protected:
    static constexpr std::int32_t setup = 179;
    static constexpr std::int32_t settings = 181;

    WindowEventsTest() {
        object = CountedRef<HostObject>::adopt(Plugin::create(nullptr, port, counter));
        object.queryTo(events);
        CountedRef<IPlugin3> plugin;
        object.queryTo(plugin);
        EXPECT_EQ(plugin->onConnectHost(&host.app), HostCode::success);
    }

    HostResult send(std::int32_t event, HostObject* input = nullptr) {
        return events->onEvent(event, variantOf(input), nullptr);
    }
    /// Whether the plug-in is behind the window's button.
    static bool adds(HeadlessRig& rig) {
        const std::size_t before = rig.shownRows("deviceDrawGrid").size();
        rig.press("addDeviceButton");
        return rig.shownRows("deviceDrawGrid").size() == before + 1;
    }
    static bool showsChannels(HeadlessRig& rig) {
        return !rig.read({"channelDrawGrid", 1, 5}).empty();
    }

    HandlerCount handlers;
    ScriptedHost host;
    ManualCounter counter;
    ScriptedPort port;
    HeadlessRig first;
    HeadlessRig second;
    CountedRef<HostObject> object;
    CountedRef<IPlugin4> events;
};

TEST_F(WindowEventsTest, EachWindowIsMadeAndClosedByItsEvents) {
    EXPECT_EQ(send(settings, first.window()), HostCode::success);
    EXPECT_TRUE(adds(first));
    for (const auto& [open, close] : {std::pair{179, 180}, {185, 186}}) {
        HeadlessRig rig;
        EXPECT_EQ(send(open, rig.window()), HostCode::success);
        EXPECT_TRUE(showsChannels(rig));
        EXPECT_EQ(send(close), HostCode::success);
        rig.passTime(150);
        KVDrawGrid(hostWindow(rig.window()), "channelDrawGrid").refresh();
        EXPECT_FALSE(showsChannels(rig));
        EXPECT_EQ(send(close), HostCode::success) << "there is none any more";
    }
    EXPECT_TRUE(adds(first));
    EXPECT_EQ(send(settings, second.window()), HostCode::success) << "in place of the first";
    EXPECT_FALSE(adds(first));
    EXPECT_TRUE(adds(second));
    EXPECT_EQ(send(settings, second.window()), HostCode::success) << "the same host window";
    EXPECT_TRUE(adds(second));
    EXPECT_EQ(send(182), HostCode::success);
    EXPECT_FALSE(adds(second));
    EXPECT_EQ(send(182), HostCode::success);
    EXPECT_THAT(second.takeFailures(), IsEmpty());
}

TEST_F(WindowEventsTest, AWindowThatCannotBeMadeIsReportedAndLeavesTheOldOne) {
    EXPECT_EQ(send(settings, first.window()), HostCode::success);
    EXPECT_EQ(send(settings, nullptr), HostCode::failed);
    EXPECT_EQ(send(settings, &host.app), HostCode::failed);
    EXPECT_EQ(events->onEvent(settings, {}, nullptr), HostCode::failed);
    EXPECT_EQ(send(setup, nullptr), HostCode::failed);
    EXPECT_THAT(host.app.errors,
                ElementsAre(L"Window must not be null.",
                            L"The host's object is not a window of its toolkit.",
                            L"Window must not be null.", L"Window must not be null."));
    EXPECT_TRUE(adds(first));
}

TEST_F(WindowEventsTest, ThePluginGoesWithBothWindowsOpen) {
    EXPECT_EQ(send(settings, first.window()), HostCode::success);
    EXPECT_TRUE(adds(first));
    EXPECT_EQ(send(setup, second.window()), HostCode::success);
    EXPECT_TRUE(showsChannels(second));
    EXPECT_TRUE(first.select("deviceDrawGrid", {1}));
    EXPECT_TRUE(first.press("removeDeviceButton"));
    events.reset();
    object.reset();
    EXPECT_FALSE(adds(first));
}

struct Operations {
    void one(const IconButton&, const NoArgs&) {}
    void other(const IconButton&, const NoArgs&) {}
};

TEST(Handlers, AreTrackedAndKnowTheirTypeAndTheirEqual) {
    const HandlerCount handlers;
    const Kestrova::RT::Core::RuntimePtr library(kvRtGetLibrary());
    const auto handler = makeObject<EventHandlerImpl<IconButton, NoArgs>>(
        library, BoundHandler<IconButton, NoArgs>{nullptr, 7});
    const auto foreign = makeObject<EventHandlerImpl<Timer, NoArgs>>(
        library, BoundHandler<Timer, NoArgs>{nullptr, 7});
    EXPECT_EQ(handlers.now(), 2U);
    HostBool equals[2] = {hostTrue, hostTrue};
    handler->equals(nullptr, &equals[0]);
    handler->equals(foreign.get(), &equals[1]);
    EXPECT_THAT(equals, ElementsAre(hostFalse, hostFalse));
    char* name = nullptr;
    EXPECT_EQ(handler->getTypeName(&name), HostCode::success);
    EXPECT_STREQ(name, "Kestrova::Tessel::IEventHandler::kvrtType");
    std::free(name);
    Operations object;
    EXPECT_NE(bindHandler({}, &object, &Operations::one).key,
              bindHandler({}, &object, &Operations::other).key);
    EXPECT_EQ(handlerKey(0x0807060504030201, 0x100F0E0D0C0B0A09), 0xE7ECFB4F6E006495);
}

TEST(Adapters, NameWhatIsMissing) {
    const auto expect = [](const char* text, const std::function<void()>& action) {
        try {
            action();
            ADD_FAILURE() << text;
        } catch (const InvalidParameterException& failure) {
            EXPECT_STREQ(failure.what(), text);
        }
    };
    using Slot = EventSlot<IconButton, NoArgs>;
    const IconButton none;
    const IconButton button({nullptr, makeObject<station::IconButton>("add", nullptr)});
    const BoundHandler<IconButton, NoArgs> handler{[](const auto&, const auto&) {}, 1};
    expect("Must bind to a valid callable.", [&] { Slot{nullptr, nullptr, &none}.subscribe({}); });
    expect("Invalid or uninitialized control.", [&] {
        Slot{nullptr, nullptr, &none}.subscribe(handler);
    });
    expect("No subscribe method defined", [&] {
        Slot{nullptr, nullptr, &button}.subscribe(handler);
    });
    expect("ControlFactory must not be null.", [] { Timer{ControlFactory()}; });
    expect("Window must not be null.", [] { KVDrawGrid(WindowPtr(), "grid"); });
    expect(InvalidParameterException().what(), [] { KVDrawGrid().refresh(); });
}

}  // namespace
