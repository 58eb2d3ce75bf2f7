// The text form of a fault plan.
#include "simulator/FaultPlan.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <limits>

namespace simulator {

namespace {

constexpr const char* kTargets[] = {"open",    "read",      "write",
                                    "control", "interrupt", "any"};  // in the order of FaultTarget

constexpr struct {
    const char* name;
    FaultAction action;
    const char* form;
    const char* value;  // what follows the colon; null for nothing
} kActions[] = {{"refuse", FaultAction::kRefuse, "refuse:CODE", "a last-error code"},
                {"fail", FaultAction::kFail, "fail:CODE", "a last-error code"},
                {"short", FaultAction::kShort, "short:BYTES", "a number of bytes"},
                {"late", FaultAction::kLate, "late:MS", "a number of milliseconds"},
                {"never", FaultAction::kNever, "never", nullptr},
                {"gone", FaultAction::kGone, "gone", nullptr}};

constexpr char kTargetList[] = "open, read, write, control, interrupt or any";
constexpr char kActionList[] = "refuse:CODE, fail:CODE, short:BYTES, late:MS, never or gone";

std::string Trimmed(const std::string& text) {
    const auto begin = text.find_first_not_of(" \t\r\n");
    return begin == std::string::npos
               ? ""
               : text.substr(begin, text.find_last_not_of(" \t\r\n") - begin + 1);
}

std::string NumberRange() {
    return "from 1 to " + std::to_string(std::numeric_limits<std::uint32_t>::max());
}

std::string ReadWhich(const std::string& text, Fault& fault) {
    const auto dash = text.find('-');
    const bool open = !text.empty() && text.back() == '+';
    const auto first = FaultNumber(dash != std::string::npos ? text.substr(0, dash)
                                   : open                    ? text.substr(0, text.size() - 1)
                                                             : text);
    const auto last = dash != std::string::npos ? FaultNumber(text.substr(dash + 1))
                      : open ? std::make_optional(std::numeric_limits<std::uint32_t>::max())
                             : first;
    if (!first || !last) {
        return "\"" + text + "\" is not N, N-M or N+, with numbers " + NumberRange();
    }
    if (*last < *first) {
        return "in \"" + text + "\" the second number is below the first";
    }
    fault.first = *first;
    fault.last = *last;
    return "";
}

std::string ReadAction(const std::string& text, Fault& fault) {
    const auto colon = text.find(':');
    const std::string name = text.substr(0, colon);
    const auto* const action = std::find_if(std::begin(kActions), std::end(kActions),
                                            [&](const auto& one) { return name == one.name; });
    if (action == std::end(kActions)) {
        return "\"" + name + "\" is not one of " + kActionList;
    }
    fault.action = action->action;
    if (action->value == nullptr) {
        return colon == std::string::npos ? "" : name + " takes no value";
    }
    const auto value =
        colon == std::string::npos ? std::nullopt : FaultNumber(text.substr(colon + 1));
    fault.value = value.value_or(0);
    return value ? "" : std::string(action->form) + " needs " + action->value + " " + NumberRange();
}

// Returns what is wrong; empty for nothing.
std::string ReadFault(const std::string& text, Fault& fault) {
    const auto hash = text.find('#');
    const auto equals = text.find('=');
    if (hash == std::string::npos || equals == std::string::npos || equals < hash) {
        return "the form is KIND#WHICH=ACTION, as in write#3=refuse:1117";
    }
    const std::string kind = Trimmed(text.substr(0, hash));
    const auto* const target = std::find(std::begin(kTargets), std::end(kTargets), kind);
    if (target == std::end(kTargets)) {
        return "\"" + kind + "\" is not one of " + kTargetList;
    }
    fault.target = static_cast<FaultTarget>(target - kTargets);
    std::string problem = ReadWhich(Trimmed(text.substr(hash + 1, equals - hash - 1)), fault);
    if (problem.empty()) {
        problem = ReadAction(Trimmed(text.substr(equals + 1)), fault);
    }
    if (problem.empty() && fault.target == FaultTarget::kOpen &&
        fault.action != FaultAction::kRefuse && fault.action != FaultAction::kGone) {
        problem = "open takes refuse:CODE or gone only";
    }
    return problem;
}

}  // namespace

std::vector<std::string> FaultEntries(const std::string& text) {
    std::vector<std::string> entries;
    for (std::size_t at = 0; at <= text.size() && !Trimmed(text).empty();) {
        const std::size_t comma = std::min(text.find(',', at), text.size());
        entries.push_back(Trimmed(text.substr(at, comma - at)));
        at = comma + 1;
    }
    return entries;
}

std::optional<std::uint32_t> FaultNumber(const std::string& text) {
    std::uint32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() && value > 0
               ? std::make_optional(value)
               : std::nullopt;
}

std::optional<FaultPlan> FaultPlan::Parse(const std::string& text, std::string& error) {
    FaultPlan plan;
    error.clear();
    for (const std::string& entry : FaultEntries(text)) {
        Fault fault;
        const std::string problem = ReadFault(entry, fault);
        if (!problem.empty()) {
            error = entry.empty() ? "entry " + std::to_string(plan.faults.size() + 1) + " is empty"
                                  : "\"" + entry + "\": " + problem;
            return std::nullopt;
        }
        plan.faults.push_back(fault);
    }
    return plan;
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
