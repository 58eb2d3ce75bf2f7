// Parses a script: a text with one command a line for a simulated PC and its host. Player plays it.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lab {

enum class Verb {
    // What happens to a device of the PC.
    kTap,
    kEnter,
    kLeave,
    kSend,
    kChipStatus,
    kChipBits,
    kBleClient,
    kUnplug,
    kPlug,
    kFault,
    // What the host and the player do.
    kWait,
    kRenew,
    kReadNumber,
    kReadMessage,
    kWrite,
    kUpdate,
    kInit,
    kConnect,
    kDisconnect,
    kOpen,
    kListener,
    kStop,
    kStart,
    kRestart,
    kCreate,
    kJoin,
    kPc,
    kExpectEvent,
    kExpectResult,
    kRepeat,
};

/// What is given as NAME=VALUE or NAME. Of a message: url as text, the others as bytes.
using Fields = std::map<std::string, std::string>;

/// The value of a field that is a number.
std::int64_t NumberOf(const Fields& fields, const std::string& name, std::int64_t otherwise = 0);

bool IsOneOf(Verb verb, std::initializer_list<Verb> verbs);
constexpr bool IsDeviceVerb(Verb verb) {
    return verb <= Verb::kFault;
}

struct Command {
    std::size_t line = 0;
    std::string text;  ///< the line as written, without its comment and the blanks around it
    Verb verb = Verb::kWait;
    std::optional<std::int64_t> at;      ///< "at MS": not before this time of the script
    std::optional<std::int64_t> in;      ///< "in MS": it happens at the device that much later
    std::vector<std::string> only;       ///< "on NAMES": only on these routes and chips
    unsigned host = 0;                   ///< "host N": runs on this host's thread; 0: the script's
    unsigned manager = 1;                ///< "manager N": the manager that does it
    std::optional<std::int64_t> number;  ///< MS, N, or the event's number
    std::int64_t within = 0;             ///< kExpectEvent: milliseconds
    bool on = true;        ///< kListener: on; kExpectResult: OK; kReadMessage: into the own message
    std::string argument;  ///< kFault: the plan; kRenew: 32 bytes, empty for random; kSend: bytes;
                           ///< kChipBits: register (2 bytes), mask and value
    std::string route;     ///< kTap, kSend: the name of a route, or empty
    Fields fields;
    std::vector<Command> body;  ///< kRepeat
};

constexpr std::int64_t kDefaultStay = 800;  ///< milliseconds of a "tap" without a time
constexpr unsigned kMostHosts = 4;
constexpr unsigned kMostManagers = 4;

struct Script {
    std::string file;
    std::vector<Command> commands;

    /// The fields of "pc", which can only be the first command; empty without it.
    Fields PcSettings() const;
    /// "FILE:LINE: pc ", for messages about one of these fields.
    std::string PcPlace() const;
    /// "FILE:LINE: TEXT: ", for messages about a command.
    std::string PlaceOf(const Command& command) const;
};

/// Throws WrongCall as "FILE:LINE: ..." with the wrong word and what is expected.
Script ParseScript(const std::string& file, std::string_view text);

}  // namespace lab
