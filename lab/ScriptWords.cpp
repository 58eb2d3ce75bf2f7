#include "lab/ScriptWords.h"

namespace lab {

const std::vector<Word>& ScriptWords() {
    using V = Verb;
    static const std::vector<Word> words{
        {V::kTap, kIn, "tap [MS [ROUTE]]",
         "a phone is held to the tag for MS milliseconds (800); ROUTE says to which tag, where the "
         "PC has several (the first). Waits until the phone has left and its visit has ended, at "
         "most 8.5 s"},
        {V::kEnter, kIn, "enter", "a phone enters and stays"},
        {V::kLeave, kIn, "leave", "the phone leaves"},
        {V::kSend, kIn, "send HEX [ROUTE]",
         "the keyboard on ROUTE (the first) sends these bytes as one report on hid, or one "
         "notification on ble, whatever they mean"},
        {V::kWait, 0, "wait MS", "waits MS milliseconds before the next line"},
        {V::kRenew, kManager, "renew [HEX|random]",
         "WriteRandNum with 32 bytes, or random ones. Returns at once"},
        {V::kReadNumber, kManager, "read-number", "ReadRandNum"},
        {V::kReadMessage, kManager, "read-message [own]",
         "ReadMessage into a new message; own: into the message that the manager was created with"},
        {V::kWrite, kManager | kFields, "write [url=TEXT] [mac=HEX] [number=HEX] [model=HEX]",
         "WriteMessage with these fields changed"},
        {V::kUpdate, kManager | kFields, "update [url=TEXT] [mac=HEX] [number=HEX] [model=HEX]",
         "changes these fields of the message that the manager was created with, then "
         "UpdateNfcData"},
        {V::kInit, kManager, "init", "DeviceInit"},
        {V::kConnect, kManager, "connect",
         "on hid reports the keyboard as connected (SetMcuKbConnectStatus); on ble connects it "
         "(BtConnect)"},
        {V::kDisconnect, kManager, "disconnect", "the opposite of connect"},
        {V::kOpen, kManager, "open", "init and connect, each where the PC needs it"},
        {V::kUnplug, 0, "unplug", "the device is unplugged"},
        {V::kPlug, 0, "plug", "the device is plugged in again"},
        {V::kFault, 0, "fault PLAN|none", "these faults from now on, or none"},
        {V::kChipStatus, kIn, "chip-status N",
         "fanli and like-fanli: an interrupt with this status, from 0 to 255"},
        {V::kChipBits, 0, "chip-bits REGISTER MASK VALUE",
         "FM11N chips: the bits of MASK in this register always read as in VALUE. 4, 2 and 2 "
         "hexadecimal digits"},
        {V::kBleClient, kFields,
         "ble-client [inside-subscribe=MS] [inside-write=MS] [threads=N] [after-refusal]",
         "where the Bluetooth client delivers from now on: also inside a subscription or a write, "
         "which waits up to MS for a notification; on N threads, from the next subscription on; "
         "and after an unsubscription that a fault has refused"},
        {V::kListener, kManager | kFields, "listener on|off [pause=MS] [reads] [renews]",
         "RegisterListener. In each event the listener then pauses, renews the number (32 equal "
         "bytes, counted up from 80 to DF) and reads it"},
        {V::kStop, kManager, "stop", "releases the manager"},
        {V::kStart, kManager | kFields, "start [url=TEXT] [mac=HEX] [number=HEX] [model=HEX]",
         "creates a manager, opens the tag and writes"},
        {V::kRestart, kManager | kFields, "restart [url=TEXT] [mac=HEX] [number=HEX] [model=HEX]",
         "stop and start"},
        {V::kCreate, kManager | kFields, "create [url=TEXT] [mac=HEX] [number=HEX] [model=HEX]",
         "only creates a manager"},
        {V::kJoin, kScriptOnly, "join", "waits until every host has done its lines so far"},
        {V::kExpectEvent, 0, "expect event N within MS, or expect result OK|FAIL",
         "waits for an event after the last tap or enter, each event being used once; or checks "
         "the result of the last operation"},
        {V::kRepeat, kScriptOnly, "repeat N ... end",
         "plays the lines between them N times; at most 16 levels deep"},
        {V::kPc, kScriptOnly | kFields,
         "pc [route=NAME[,NAME...]] [chip=NAME] [late=MS] [changes=N]",
         "the PC that the script is written for, as its first command; options of the call "
         "override it. Threads may run up to late milliseconds late, and there are so many random "
         "changes of priority among them; both matter with --seed only"},
    };
    return words;
}

const std::vector<HelpEntry>& ScriptPrefixes() {
    static const std::vector<HelpEntry> prefixes{
        {"at MS", "not before this time of the script; also alone on a line"},
        {"on NAME[,NAME...]", "only on these routes or chips"},
        {"in MS",
         "with tap, enter, leave, send and chip-status: the device does it that much later, and "
         "the script goes on at once"},
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
