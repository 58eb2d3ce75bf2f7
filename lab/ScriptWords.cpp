#include "lab/ScriptWords.h"

namespace lab {

namespace {

constexpr std::string_view kMessageFields = "url= mac= number= model= ";

}  // namespace

const std::vector<Word>& ScriptWords() {
    static const std::vector<Word> words{
        {"tap",
         Verb::kTap,
         Takes::kOptionalMs,
         kIn,
         "tap [MS [ROUTE]]",
         "a phone is held to the tag for MS milliseconds (800); ROUTE says to which tag, where the "
         "PC has several (the first). Waits until the phone has left and event 1 was received, at "
         "most 8.5 s",
         {}},
        {"enter", Verb::kEnter, Takes::kNothing, kIn, "enter", "a phone enters and stays", {}},
        {"leave", Verb::kLeave, Takes::kNothing, kIn, "leave", "the phone leaves", {}},
        {"wait",
         Verb::kWait,
         Takes::kMs,
         0,
         "wait MS",
         "waits MS milliseconds before the next line",
         {}},
        {"renew",
         Verb::kRenew,
         Takes::kNumber,
         kManager,
         "renew [HEX|random]",
         "WriteRandNum with 32 bytes, or random ones. Returns at once",
         {}},
        {"read-number",
         Verb::kReadNumber,
         Takes::kNothing,
         kManager,
         "read-number",
         "ReadRandNum",
         {}},
        {"read-message",
         Verb::kReadMessage,
         Takes::kOwn,
         kManager,
         "read-message [own]",
         "ReadMessage into a new message; own: into the message that the manager was created with",
         {}},
        {"write", Verb::kWrite, Takes::kNothing, kManager,
         "write [url=TEXT] [mac=HEX] [number=HEX] [model=HEX]",
         "WriteMessage with these fields changed", kMessageFields},
        {"update", Verb::kUpdate, Takes::kNothing, kManager,
         "update [url=TEXT] [mac=HEX] [number=HEX] [model=HEX]",
         "changes these fields of the message that the manager was created with, then "
         "UpdateNfcData",
         kMessageFields},
        {"init", Verb::kInit, Takes::kNothing, kManager, "init", "DeviceInit", {}},
        {"connect",
         Verb::kConnect,
         Takes::kNothing,
         kManager,
         "connect",
         "on ble connects the keyboard (BtConnect); on hid reports it as connected "
         "(SetMcuKbConnectStatus)",
         {}},
        {"disconnect",
         Verb::kDisconnect,
         Takes::kNothing,
         kManager,
         "disconnect",
         "the opposite of connect",
         {}},
        {"open",
         Verb::kOpen,
         Takes::kNothing,
         kManager,
         "open",
         "init and connect, each where the PC needs it",
         {}},
        {"unplug", Verb::kUnplug, Takes::kNothing, 0, "unplug", "the device is unplugged", {}},
        {"plug", Verb::kPlug, Takes::kNothing, 0, "plug", "the device is plugged in again", {}},
        {"fault",
         Verb::kFault,
         Takes::kPlan,
         0,
         "fault PLAN|none",
         "these faults from now on, or none",
         {}},
        {"chip-status",
         Verb::kChipStatus,
         Takes::kByte,
         kIn,
         "chip-status N",
         "fanli and like-fanli: an interrupt with this status, from 0 to 255",
         {}},
        {"chip-bits",
         Verb::kChipBits,
         Takes::kBits,
         0,
         "chip-bits REGISTER MASK VALUE",
         "FM11N chips: the bits of MASK in this register always read as in VALUE. 4, 2 and 2 "
         "hexadecimal digits",
         {}},
        {"ble-client", Verb::kBleClient, Takes::kNothing, 0,
         "ble-client [inside-subscribe=MS] [inside-write=MS] [threads=N] [after-refusal]",
         "where the Bluetooth client delivers from now on: also inside a subscription or a write, "
         "which waits up to MS for a notification; on N threads, from the next subscription on; "
         "and after an unsubscription that a fault has refused",
         "inside-subscribe= inside-write= threads= after-refusal "},
        {"listener", Verb::kListener, Takes::kSwitch, kManager,
         "listener on|off [pause=MS] [reads] [renews]",
         "RegisterListener. In each event the listener then pauses, renews the number (32 equal "
         "bytes, counted up from 80 to DF) and reads it",
         "pause= reads renews "},
        {"stop", Verb::kStop, Takes::kNothing, kManager, "stop", "releases the manager", {}},
        {"start", Verb::kStart, Takes::kNothing, kManager,
         "start [url=TEXT] [mac=HEX] [number=HEX] [model=HEX]",
         "creates a manager, opens the tag and writes", kMessageFields},
        {"restart", Verb::kRestart, Takes::kNothing, kManager,
         "restart [url=TEXT] [mac=HEX] [number=HEX] [model=HEX]", "stop and start", kMessageFields},
        {"create", Verb::kCreate, Takes::kNothing, kManager,
         "create [url=TEXT] [mac=HEX] [number=HEX] [model=HEX]", "only creates a manager",
         kMessageFields},
        {"join",
         Verb::kJoin,
         Takes::kNothing,
         kScriptOnly,
         "join",
         "waits until every host has done its lines so far",
         {}},
        {"expect",
         Verb::kExpectEvent,
         Takes::kExpect,
         0,
         "expect event N within MS, or expect result OK|FAIL",
         "waits for an event after the last tap or enter, each event being used once; or checks "
         "the result of the last operation",
         {}},
        {"repeat",
         Verb::kRepeat,
         Takes::kCount,
         kScriptOnly,
         "repeat N ... end",
         "plays the lines between them N times; at most 16 levels deep",
         {}},
        {"pc", Verb::kPc, Takes::kNothing, kScriptOnly,
         "pc [route=NAME[,NAME...]] [chip=NAME] [late=MS] [changes=N]",
         "the PC that the script is written for, as its first command; options of the call "
         "override "
         "it. Threads may run up to late milliseconds late, and there are so many random "
         "changes of priority among them; both matter with --seed only",
         "route= chip= late= changes= "},
    };
    return words;
}

const std::vector<Prefix>& ScriptPrefixes() {
    static const std::vector<Prefix> prefixes{
        {"at MS", "not before this time of the script; also alone on a line"},
        {"on NAME[,NAME...]", "only on these routes or chips"},
        {"in MS",
         "with tap, enter, leave and chip-status: the device does it that much later, and the "
         "script goes on at once"},
        {"host N",
         "N from 1 to 4: runs on the thread of this host, after what the host was given before, "
         "while the script goes on"},
        {"manager N",
         "N from 1 to 4: another manager than the first, which start or create makes. Each manager "
         "has a message of its own"},
    };
    return prefixes;
}

}  // namespace lab
