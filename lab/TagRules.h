// What must be on the tag, in a phone's reading and in the numbers that the listener is given.
#pragma once

#include <optional>
#include <set>
#include <string>

#include "lab/RunHistory.h"
#include "lab/Violations.h"
#include "simulator/PcKinds.h"

namespace lab {

class TagRules {
  public:
    TagRules(const RunHistory& history, Findings& findings)
        : m_history(history), m_findings(findings) {}

    /// The tag's memory at a step. Nothing is judged while an image may be on its way, or after a
    /// write that failed.
    void JudgeTag(const std::string& memory, double now) const;
    /// What a phone read that has been at the tag since `begin`, alone.
    void JudgeReading(const Json& phone, const Command& tap, double begin) const;
    /// The number of an event: a whole one, given since the library serves; on a keyboard, at any
    /// time.
    void JudgeShown(const Json& event, const simulator::RouteKind& route) const;

  private:
    struct Known {
        std::set<std::string> numbers;  // one of them, in hexadecimal
        Fields fields;                  // that are known beside the number
        const Done* last = nullptr;     // that has put an image
    };
    std::optional<Known> KnownTag(double now) const;
    void FindFields(Known& known) const;
    bool IsAlone(const Done& write) const;

    const RunHistory& m_history;
    Findings& m_findings;
};

}  // namespace lab
