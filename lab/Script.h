// Parses a script: a text with one command a line for a simulated PC and its host. Player plays it.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lab {

enum class Verb {
    kWait,
    kTap,
    kEnter,
    kLeave,
    kRenew,
    kReadNumber,
    kReadMessage,
    kWrite,
    kUpdate,
    kInit,
    kConnect,
    kDisconnect,
    kOpen,
    kUnplug,
    kPlug,
    kFault,
    kChipStatus,
    kChipBits,
    kBleClient,
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
    std::string argument;  ///< kFault: the plan; kRenew: 32 bytes, empty for random; kTap: a route;
                           ///< kChipBits: register (2 bytes), mask and value
    /// What is given as NAME=VALUE or NAME. Of a message: url as text, the others as bytes.
    std::map<std::string, std::string> fields;
    std::vector<Command> body;  ///< kRepeat
};

constexpr std::int64_t kDefaultStay = 800;  ///< milliseconds of a "tap" without a time
constexpr unsigned kMostHosts = 4;
constexpr unsigned kMostManagers = 4;

struct Script {
    std::string file;
    std::vector<Command> commands;

    /// The fields of "pc", which can only be the first command; empty without it.
    std::map<std::string, std::string> PcSettings() const;
    /// "FILE:LINE: pc ", for messages about one of these fields.
    std::string PcPlace() const;
};

/// Throws WrongCall as "FILE:LINE: ..." with the wrong word and what is expected.
Script ParseScript(const std::string& file, std::string_view text);

}  // namespace lab
