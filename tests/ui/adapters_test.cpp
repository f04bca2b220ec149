#include <gmock/gmock.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>

#include "host/host_error.h"
#include "tests/support/scripted_runtime.h"
#include "ui/controls.h"
#include "ui/event_args.h"
#include "ui/resource.h"

namespace {

using namespace Kestrova::Tessel;
using namespace Kestrova::RT::Core;
using testing::IsEmpty;

using ClickHandler = EventHandlerImpl<IconButton, NoArgs>;

/// A grid that answers what the test says, and counts what is done with it.
class StubGrid final : public Implements<IDrawGrid, IControl, IComponent> {
  public:
    HostResult subscribe(std::int32_t slot, IEventHandler* handler) override {
        subscribed = slot;
        kept = CountedRef<IEventHandler>(handler);
        return answer;
    }
    HostResult unsubscribe(std::int32_t, IEventHandler*) override { return answer; }
    HostResult initialise(std::int32_t, std::int32_t) override { return answer; }
    HostResult setColumn(std::int32_t, RuntimeString*, std::int32_t, std::int32_t, std::int32_t,
                         RuntimeString*) override {
        return answer;
    }
    HostResult getColumn(std::int32_t, IDrawGridColumn** column) override {
        *column = nullptr;
        return answer;
    }
    HostResult endColumns() override { return answer; }
    HostResult setRowCount(std::int32_t) override { return answer; }
    HostResult refresh() override { return answer; }
    HostResult getRowCount(std::int32_t*) override { return answer; }
    HostResult isRowSelected(std::int32_t, HostBool*) override { return answer; }

    HostResult answer = HostCode::success;
    std::int32_t subscribed = 0;
    CountedRef<IEventHandler> kept;
};

class NoArgsObject final : public Implements<IEventArgs> {};

class AdaptersTest : public testing::Test {
  protected:
    ~AdaptersTest() override {
        grid.kept.reset();
        adapter = {};
        EXPECT_EQ(grid.addRef(), 2U) << "a reference was kept or given back twice";
        grid.release();
        grid.release();
        EXPECT_THAT(runtime.tracked, IsEmpty());
    }

    template <typename Action>
    static std::string failureOf(const Action& action) {
        try {
            action();
        } catch (const InvalidParameterException& failure) {
            return failure.what();
        }
        return "none";
    }
    CountedRef<ClickHandler> makeHandler(std::function<void()> action, std::uint64_t key = 1) {
        return makeObject<ClickHandler>(
            library, BoundHandler<IconButton, NoArgs>{
                         [action](const IconButton&, const NoArgs&) { action(); }, key});
    }

    CallScript script;
    ScriptedRuntime runtime{script};
    const RuntimePtr library{&runtime};
    StubGrid& grid = *new StubGrid;
    KVDrawGrid adapter{ObjectPtr<IDrawGrid>(library, CountedRef<IDrawGrid>(&grid))};
};

TEST_F(AdaptersTest, ANullReferenceIsAnErrorInEveryAdapter) {
    EXPECT_EQ(failureOf([] { KVDrawGrid().refresh(); }), "Invalid parameter");
    EXPECT_EQ(failureOf([] { KVDrawGrid().getColumn(0); }), "Invalid parameter");
    EXPECT_EQ(failureOf([&] { adapter.getColumn(0).setFlagA(true); }), "Invalid parameter");
    EXPECT_EQ(failureOf([] { DrawGridGroup().getName(); }), "Invalid parameter");
    EXPECT_EQ(failureOf([] { DrawGridCellInputArgs().getText(); }), "Invalid parameter");
    EXPECT_EQ(failureOf([] { DrawGridCellPropsArgs().setNumber(1.0); }), "Invalid parameter");
    EXPECT_EQ(failureOf([] { StringPtr().getText(); }), "Invalid parameter");
    EXPECT_EQ(failureOf([] { WindowPtr().setXml("<Window/>"); }), "Invalid parameter");
    EXPECT_EQ(failureOf([] { ControlFactory{WindowPtr()}; }), "Invalid parameter");
    EXPECT_EQ(failureOf([] { Timer().setInterval(1); }), "Invalid parameter");
    EXPECT_EQ(failureOf([] { KVDrawGrid(WindowPtr(), "grid"); }), "Window must not be null.");
    EXPECT_EQ(failureOf([] { IconButton(WindowPtr(), "add"); }), "Window must not be null.");
    EXPECT_EQ(failureOf([] { Timer{ControlFactory()}; }), "ControlFactory must not be null.");
}

TEST_F(AdaptersTest, SubscribingIsCheckedInItsOrder) {
    using Slot = EventSlot<KVDrawGrid, DrawGridLiveValueArgs>;
    const BoundHandler<KVDrawGrid, DrawGridLiveValueArgs> bound{
        [](const KVDrawGrid&, const DrawGridLiveValueArgs&) {}, 1};
    const KVDrawGrid none;
    EXPECT_EQ(failureOf([&] { none.liveValue().subscribe({}); }), "Must bind to a valid callable.");
    EXPECT_EQ(failureOf([&] { none.liveValue().subscribe(bound); }),
              "Invalid or uninitialized control.");
    EXPECT_EQ(failureOf([&] { Slot{}.subscribe(bound); }), "Invalid or uninitialized control.");
    EXPECT_EQ(failureOf([&] {
                  (Slot{{}, {}, &adapter}.subscribe(bound));
              }),
              "No subscribe method defined");
    adapter.liveValue().subscribe(bound);
    EXPECT_EQ(grid.subscribed, 4);
    EXPECT_EQ(runtime.tracked.count(grid.kept.get()), 1U);
}

TEST_F(AdaptersTest, EachEventOfTheGridHasItsPlace) {
    std::vector<std::int32_t> places;
    const auto note = [&]<typename Args>(const EventSlot<KVDrawGrid, Args>& slot) {
        slot.subscribe({[](const KVDrawGrid&, const Args&) {}, 1});
        places.push_back(grid.subscribed);
    };
    note(adapter.cellProps());
    note(adapter.comboItems());
    note(adapter.liveValue());
    note(adapter.cellAction());
    note(adapter.cellInput());
    note(adapter.setGroups());
    EXPECT_THAT(places, testing::ElementsAre(2, 3, 4, 6, 8, 13));
}

TEST_F(AdaptersTest, AFailedCallThrowsTheClassOfItsCodeWithTheToolkitsText) {
    grid.answer = hostResult(0x80000005U);
    runtime.putError("no row 7");
    try {
        adapter.isRowSelected(7);
        FAIL();
    } catch (const OutOfRangeException& failure) {
        EXPECT_STREQ(failure.what(), "no row 7");
    }
    grid.answer = hostResult(0x80001234U);
    try {
        adapter.refresh();
        FAIL();
    } catch (const KvrtException& failure) {
        EXPECT_EQ(failure.getCode(), 0x80001234U);
    }
}

TEST_F(AdaptersTest, ABorrowedReferenceIsNotReleasedAndItsCopyIs) {
    const std::uint32_t before = grid.addRef();
    {
        const auto borrowed = ObjectPtr<IDrawGrid>::borrow(library, &grid);
        EXPECT_EQ(&borrowed.target(), &grid);
        const auto copy = borrowed;
        EXPECT_EQ(grid.addRef(), before + 2);
        grid.release();
    }
    EXPECT_EQ(grid.release(), before - 1);
}

TEST_F(AdaptersTest, TheKeyIsMadeOfBothAddresses) {
    EXPECT_EQ(handlerKey(0, 0), 0x88201FB960FF6465U);
    EXPECT_EQ(handlerKey(0x0123456789ABCDEFU, 0xFEDCBA9876543210U), 0x39FCAC3441A3EEE5U);
}

TEST_F(AdaptersTest, HandlersOfOneClassWithOneKeyAreEqual) {
    const auto handler = makeHandler([] {});
    const auto same = makeHandler([] {});
    const auto other = makeHandler([] {}, 2);
    using TickHandler = EventHandlerImpl<Timer, NoArgs>;
    const auto foreign = makeObject<TickHandler>(
        library, BoundHandler<Timer, NoArgs>{[](const Timer&, const NoArgs&) {}, 1});
    const auto equals = [&](HostObject* object) {
        HostBool equal = 7;
        EXPECT_EQ(handler->equals(object, &equal), HostCode::success);
        return equal;
    };
    EXPECT_EQ(equals(same.get()), hostTrue);
    EXPECT_EQ(equals(other.get()), hostFalse);
    EXPECT_EQ(equals(foreign.get()), hostFalse);
    EXPECT_EQ(equals(&grid), hostFalse);
    EXPECT_EQ(equals(nullptr), hostFalse);
}

TEST_F(AdaptersTest, AHandlerAnswersForItsInterfacesAndItsTypeName) {
    const auto handler = makeHandler([] {});
    const auto has = [&](const InterfaceId& id) {
        void* found = nullptr;
        const HostResult answer = handler->queryInterface(id, &found);
        if (found != nullptr) {
            handler->release();
        }
        return answer;
    };
    EXPECT_EQ(has(IEventHandler::id), HostCode::success);
    EXPECT_EQ(has(RuntimeObject::id), HostCode::success);
    EXPECT_EQ(has(HostObject::id), HostCode::success);
    EXPECT_EQ(has(IDrawGrid::id), HostCode::noInterface);
    char* name = nullptr;
    EXPECT_EQ(handler->getTypeName(&name), HostCode::success);
    const std::unique_ptr<char, decltype(&std::free)> owned(name, &std::free);
    EXPECT_STREQ(owned.get(), "Kestrova::Tessel::IEventHandler::kvrtType");
}

TEST_F(AdaptersTest, ExceptionsOfAHandlerBecomeItsCode) {
    const auto codeOf = [&](std::function<void()> action) {
        return static_cast<std::uint32_t>(makeHandler(std::move(action))->handle(nullptr, nullptr));
    };
    EXPECT_EQ(codeOf([] {}), 0U);
    EXPECT_EQ(codeOf([] { throw NotFoundException("x"); }), 0x80000006U);
    EXPECT_EQ(codeOf([] { throw KvrtException(0x80001234U, false, "x"); }), 0x80001234U);
    EXPECT_EQ(codeOf([] { throw std::runtime_error("x"); }), 0x80000014U);
    EXPECT_EQ(codeOf([] { raiseHostError(HostCode::failed); }), 0x80000014U);
    EXPECT_EQ(codeOf([] { throw 1; }), 0x80000014U);
}

TEST_F(AdaptersTest, AnArgumentOfTheWrongKindIsTheHandlersFailure) {
    bool called = false;
    const auto handler = makeObject<EventHandlerImpl<KVDrawGrid, DrawGridCellInputArgs>>(
        library, BoundHandler<KVDrawGrid, DrawGridCellInputArgs>{
                     [&](const KVDrawGrid&, const DrawGridCellInputArgs&) { called = true; }, 1});
    const auto args = makeObject<NoArgsObject>();
    EXPECT_EQ(static_cast<std::uint32_t>(handler->handle(&grid, args.get())), 0x80004002U);
    EXPECT_FALSE(called);
    EXPECT_EQ(handler->handle(&grid, nullptr), HostCode::success);
    EXPECT_TRUE(called);
}

TEST_F(AdaptersTest, AResourceWithoutASizeEndsAtItsFirstZero) {
    constexpr char content[] = "<Window/>\0<Grid/>";
    EXPECT_EQ((Resource{"a", "Tessel", content, 0}.text()), "<Window/>");
    EXPECT_EQ((Resource{"a", "Tessel", content, sizeof(content) - 1}.text().size()), 17U);
    EXPECT_THAT(findResource("ui/setup_window.xml", "Tessel").text(),
                testing::HasSubstr("channelDrawGrid"));
    EXPECT_THROW(findResource("ui/setup_window.xml", "Icon"), NotFoundException);
}

}  // namespace
