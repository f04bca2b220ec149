#include "simulator/module_settings.h"

#include <tuple>

#include "simulator/failure.h"
#include "simulator/frame_sinks.h"
#include "simulator/options.h"

namespace sim {
namespace {

TEST(ModuleSettings, TypeAndConfigIdGiveTheCmId) {
    using Row = std::tuple<const char*, unsigned, unsigned, Framing, unsigned>;
    const std::array rows = {
        Row{"CAN combo:5", 0x45, 5, Framing::Tecmp, 7},
        Row{"can COMBO:0x0F", 0x4F, 15, Framing::Tecmp, 7},
        Row{"LIN combo:0x32,channels=3", 0x32, 2, Framing::Tecmp, 3},
        Row{"neovifire3:7", 7, 7, Framing::AsamCmp, 19},
        Row{"NeoviFire3:300", 300, 300, Framing::AsamCmp, 19},
        Row{"CAN combo:0x145,framing=asam", 0x145, 5, Framing::AsamCmp, 7},
    };
    for (const auto& [text, cmId, configId, framing, channels] : rows) {
        const ModuleSettings module = ModuleSettings::parse(text, 1);
        EXPECT_EQ(Row(text, module.cmId, module.type->configIdOf(module.cmId), module.framing,
                      module.interfaces().size()),
                  Row(text, cmId, configId, framing, channels));
    }
}

TEST(ModuleSettings, NonsenseIsRefusedAsWrongUse) {
    for (const char* text :
         {"", "CAN combo", "CAN combo:", "CAN combo:x", "CAN combo:65536", "CAN combo:-1",
          "CAN combo:0x", "Unknown:1", "CAN combo:5,", "CAN combo:5,colour=red",
          "CAN combo:5,serial=4294967296", "CAN combo:5,drift=nan", "CAN combo:5,drift=1x",
          "CAN combo:5,channels=0", "CAN combo:5,channels=8", "CAN combo:5,jump=1",
          "CAN combo:5,framing=TECMP", "CAN combo:0x100", "LIN combo:1,framing=asam"}) {
        EXPECT_THAT([&] { ModuleSettings::parse(text, 1); },
                    testing::Throws<Failure>(testing::Field(&Failure::code, ExitCode::WrongUse)))
            << text;
    }
    EXPECT_THROW(parseModules({"CAN combo:5", "NeoviFire3:0x45"}), Failure);
}

TEST(InterfaceGuard, OnlyWhatIsSurelyVirtualIsAllowed) {
    EXPECT_FALSE(refusalFor("eth0", {.exists = true, .up = true}).empty());
    EXPECT_TRUE(refusalFor("lo", {.loopback = true}).empty());
    EXPECT_TRUE(refusalFor("v0", {.veth = true}).empty());
    EXPECT_TRUE(refusalFor("d0", {.ownNamespace = true}).empty());
}

}  // namespace
}  // namespace sim
