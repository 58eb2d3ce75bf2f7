// The text form of a fault plan.
#include "simulator/FaultPlan.h"

#include <limits>

namespace simulator {

namespace {

struct TargetName {
    const char* name;
    FaultTarget target;
};
constexpr TargetName kTargets[] = {
    {"open", FaultTarget::kOpen},           {"read", FaultTarget::kRead},
    {"write", FaultTarget::kWrite},         {"control", FaultTarget::kControl},
    {"interrupt", FaultTarget::kInterrupt}, {"any", FaultTarget::kAny}};

struct ActionName {
    const char* name;
    FaultAction action;
    const char* value;  // what follows the colon; null for nothing
};
constexpr ActionName kActions[] = {{"refuse", FaultAction::kRefuse, "a last-error code"},
                                   {"fail", FaultAction::kFail, "a last-error code"},
                                   {"short", FaultAction::kShort, "a number of bytes"},
                                   {"late", FaultAction::kLate, "a number of milliseconds"},
                                   {"never", FaultAction::kNever, nullptr},
                                   {"gone", FaultAction::kGone, nullptr}};

constexpr char kTargetList[] = "open, read, write, control, interrupt or any";
constexpr char kActionList[] = "refuse:CODE, fail:CODE, short:K, late:MS, never or gone";

std::string Trim(const std::string& text) {
    const auto begin = text.find_first_not_of(" \t\r\n");
    if (begin == std::string::npos) {
        return "";
    }
    return text.substr(begin, text.find_last_not_of(" \t\r\n") - begin + 1);
}

// Digits only, 1 to 4294967295.
std::optional<std::uint32_t> Number(const std::string& text) {
    constexpr std::uint64_t kMax = std::numeric_limits<std::uint32_t>::max();
    std::uint64_t value = 0;
    for (const char digit : text) {
        if (digit < '0' || digit > '9') {
            return std::nullopt;
        }
        value = value * 10 + static_cast<std::uint64_t>(digit - '0');
        if (value > kMax) {
            return std::nullopt;
        }
    }
    return value == 0 ? std::nullopt : std::make_optional(static_cast<std::uint32_t>(value));
}

std::string ReadWhich(const std::string& text, Fault& fault) {
    const auto dash = text.find('-');
    const bool open = !text.empty() && text.back() == '+';
    const auto first = Number(dash != std::string::npos ? text.substr(0, dash)
                              : open                    ? text.substr(0, text.size() - 1)
                                                        : text);
    const auto last = dash != std::string::npos ? Number(text.substr(dash + 1))
                      : open ? std::make_optional(std::numeric_limits<std::uint32_t>::max())
                             : first;
    if (!first || !last || *last < *first) {
        return "\"" + text + "\" after \"#\" is not N, N-M or N+ with numbers from 1";
    }
    fault.first = *first;
    fault.last = *last;
    return "";
}

std::string ReadAction(const std::string& text, Fault& fault) {
    const auto colon = text.find(':');
    const std::string name = text.substr(0, colon);
    for (const ActionName& action : kActions) {
        if (name != action.name) {
            continue;
        }
        fault.action = action.action;
        if (action.value == nullptr) {
            return colon == std::string::npos ? "" : "\"" + name + "\" takes no value";
        }
        const auto value =
            colon == std::string::npos ? std::nullopt : Number(text.substr(colon + 1));
        if (!value) {
            return "\"" + name + "\" needs " + action.value + " above 0, as in \"" + name + ":5\"";
        }
        fault.value = *value;
        return "";
    }
    return "\"" + name + "\" is no action: " + kActionList;
}

// Gives an empty text, or what is wrong.
std::string ReadFault(const std::string& text, Fault& fault) {
    const auto hash = text.find('#');
    const auto equals = text.find('=');
    if (hash == std::string::npos || equals == std::string::npos || equals < hash) {
        return "it doesn't have the form KIND#WHICH=ACTION";
    }
    const std::string kind = Trim(text.substr(0, hash));
    bool known = false;
    for (const TargetName& target : kTargets) {
        if (kind == target.name) {
            fault.target = target.target;
            known = true;
        }
    }
    if (!known) {
        return "\"" + kind + "\" is no kind of request: " + kTargetList;
    }
    std::string problem = ReadWhich(Trim(text.substr(hash + 1, equals - hash - 1)), fault);
    if (problem.empty()) {
        problem = ReadAction(Trim(text.substr(equals + 1)), fault);
    }
    if (problem.empty() && fault.target == FaultTarget::kOpen &&
        fault.action != FaultAction::kRefuse && fault.action != FaultAction::kGone) {
        problem = "an opening can only be refused or find the device gone";
    }
    return problem;
}

}  // namespace

std::optional<FaultPlan> FaultPlan::Parse(const std::string& text, std::string& error) {
    FaultPlan plan;
    error.clear();
    if (Trim(text).empty()) {
        return plan;
    }
    std::size_t begin = 0;
    for (std::size_t number = 1;; ++number) {
        const auto comma = text.find(',', begin);
        const std::string part =
            Trim(text.substr(begin, comma == std::string::npos ? comma : comma - begin));
        Fault fault;
        const std::string problem = ReadFault(part, fault);
        if (!problem.empty()) {
            error = "fault " + std::to_string(number) + ", \"" + part + "\": " + problem;
            return std::nullopt;
        }
        plan.faults.push_back(fault);
        if (comma == std::string::npos) {
            return plan;
        }
        begin = comma + 1;
    }
}

const Fault* FaultPlan::Find(FaultTarget target, std::uint32_t nth, std::uint32_t nthAny) const {
    for (const Fault& fault : faults) {
        const bool any = fault.target == FaultTarget::kAny && target != FaultTarget::kOpen;
        const std::uint32_t count = any ? nthAny : nth;
        if ((any || fault.target == target) && count >= fault.first && count <= fault.last) {
            return &fault;
        }
    }
    return nullptr;
}

}  // namespace simulator
