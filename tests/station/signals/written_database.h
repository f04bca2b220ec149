#pragma once

#include "station/errors.h"
#include "station/signals/database.h"
#include "tests/support/temporary_folder.h"

namespace station {

/// Reads databases that a test writes.
class WrittenDatabase {
  public:
    Database read(const std::string& text, const std::string& name = "test.dbc") const {
        std::ofstream(folder.path() / name, std::ios::binary) << text;
        return readDatabase(folder.path() / name);
    }
    /// What reading it is answered, without the folder; empty: it could be read.
    std::string refusal(const std::string& text, const std::string& name = "test.dbc") const {
        try {
            read(text, name);
        } catch (const UserError& error) {
            EXPECT_EQ(error.getCode(), ExitCode::Unreadable);
            const std::string path = folder.path() / name;
            const std::string answer = error.what();
            const std::size_t at = answer.find(path);
            return at == std::string::npos ? answer
                                           : answer.substr(0, at) + answer.substr(at + path.size());
        }
        return "";
    }

    const TemporaryFolder folder;
};

inline constexpr const char* bodyDbc = R"(VERSION "1.0"

NS_ :
	CM_
	BA_DEF_
	SG_MUL_VAL_

BS_: 500000:0,0
BU_: Body Door
VAL_TABLE_ Gears 0 "Park" 1 "Re\"verse" ;

BO_ 291 Engine: 8 Body
 SG_ Speed : 0|16@1+ (0.25,-10) [0|8000] "1/min" Door,Body
 SG_ Torque : 23|12@0- (1,0) [0|0] "Nm" Vector__XXX
 SG_ Gear : 28|3@1+ (1,0) [0|7] "" Door
 SG_ Heat : 32|32@1- (2,1) [0|0] ")"
                                       "\xB0"
                                       R"(C" Door

BO_ 2566848769 Wide: 64 Vector__XXX
 SG_ Far : 448|64@1- (1,0) [0|0] "" Door
 SG_ Big : 7|64@0+ (1,0) [0|0] "" Door

BO_ 512 Modes: 8 Door
 SG_ Mode M : 0|8@1+ (1,0) [0|0] "" Body
 SG_ A m0 : 8|8@1+ (1,0) [0|0] "" Body
 SG_ Page m1M : 8|8@1+ (1,0) [0|0] "" Body
 SG_ B m3 : 16|8@1+ (1,0) [0|0] "" Body

BO_ 3221225472 VECTOR__INDEPENDENT_SIG_MSG: 0 Vector__XXX
 SG_ Orphan : 0|8@1+ (1,0) [0|0] "" Vector__XXX

EV_ Env: 0 [0|1] "" 0 1 DUMMY_NODE_VECTOR0 Vector__XXX;
CM_ "of the file; with BO_ in it
BO_ 1 no message";
CM_ BO_ 291 "two
lines \"quoted\"";
CM_ SG_ 291 Speed "of the crank, )"
                                       "\x80"
                                       R"(";
CM_ BU_ Body "a node";
BA_DEF_ BO_ "GenMsgCycleTime" INT 0 65535;
BA_DEF_ SG_ "SystemSignalLongSymbol" STRING ;
BA_DEF_DEF_ "GenMsgCycleTime" 100;
BA_ "GenMsgCycleTime" BO_ 291 20;
BA_ "GenMsgCycleTime" BO_ 512 0;
BA_ "SystemSignalLongSymbol" SG_ 512 Page "PageOfThisMode";
VAL_ 291 Gear Gears ;
VAL_ 291 Heat -1 "cold" ;
VAL_ 2566848769 Far -1 "none" 5 "five" ;
VAL_ Env 0 "off" ;
NEW_THING_ what ever "a ; b";
SIG_GROUP_ 291 Some 1 : Speed Torque;
SIG_VALTYPE_ 291 Heat : 1;
SG_MUL_VAL_ 512 B Page 3-3, 7-9;
)";

inline constexpr const char* doorLdf = R"(/* doors
of a car */
LIN_description_file;
LIN_protocol_version = "2.1";
LIN_speed = 19.2 kbps;
Nodes { Master: Body, 5 ms, 0.1 ms; Slaves: Left; }
Signals {
  Position: 10, 0, Left, Body; // of the window
  Locked: 1, 0, Left, Body;
  Serial: 32, {0, 0, 0, 0}, Left, Body;
}
Diagnostic_signals { Req: 8, 0; }
Frames {
  Window: 0x21, Left, 8 { Position, 0; Locked, 10; Serial, 16; }
  Old: 34, Left { Locked, 0; }
}
Diagnostic_frames { MasterReq: 60 { Req, 0; } }
Node_attributes { Left { LIN_protocol = "2.1"; configurable_frames { Window; } } }
Schedule_tables { Normal { Window delay 10 ms; } }
Signal_encoding_types {
  Height { physical_value, 0, 1000, 0.1, -5, "%"; physical_value, 1001, 1020, 1, 0, "raw";
           logical_value, 1023, "invalid"; }
  Down { physical_value, 0, 100, -1, 10, "m"; }
}
Signal_representation { Height: Position; Down: Req; }
)";

}  // namespace station
