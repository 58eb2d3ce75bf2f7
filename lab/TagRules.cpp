// Compares the tag and what is read of it with what the script has given.
#include "lab/TagRules.h"

#include <algorithm>

#include "lab/Hex.h"
#include "lab/ImageNotes.h"
#include "tagimage/ImageGeometry.h"

namespace lab {

namespace {

constexpr char kNumber[] = "number";
constexpr char kVersion[] = "8064";
constexpr char kPrefix[] = "https://";
constexpr double kSurelyLater = 50;  // than the begin of a write on another thread

// The names of the image's fields by those of the script.
const Fields kImageFields{{"url", "URI text"},
                          {"mac", "MAC address"},
                          {"number", "random number"},
                          {"model", "PC model"}};

std::string Shown(const std::string& field, const std::string& value) {
    return field == "url" ? "\"" + value + "\"" : ToHex(value);
}

std::string OneOf(const std::set<std::string>& numbers) {
    return Joined({numbers.begin(), numbers.end()}, " or ");
}

}  // namespace

// No other image was on its way when it began, and nothing else kept it from taking its content
// over.
bool TagRules::IsAlone(const Done& write) const {
    return !Any(m_history.Ended(), [&](const Done& other) {
        const double end = other.end + (other.verb() == Verb::kRenew ? kRenewalTime : 0);
        return &other != &write && (MayPut(other.verb()) || other.verb() == Verb::kReadMessage) &&
               other.begin < write.begin + kSurelyLater && end > write.begin;
    });
}

// Contents are ordered by when they were taken over: a renewal at once, whatever its way to the tag
// takes. A whole image of later replaces what was there, and so does a number that is given while
// a write of its manager is under way.
std::optional<TagRules::Known> TagRules::KnownTag(double now) const {
    const auto& ended = m_history.Ended();
    if (m_history.IsPutting()) {
        return std::nullopt;
    }
    double lastGiven = -1;
    for (const Done& done : ended) {
        if (done.verb() == Verb::kRenew && done.end + kRenewalTime > now) {
            return std::nullopt;
        }
        if (done.worked && done.Puts(kNumber) && MayPut(done.verb())) {
            lastGiven = std::max(lastGiven, done.begin);
        }
    }
    Known known;
    for (const Done& done : ended) {
        if (!MayPut(done.verb())) {
            continue;
        }
        known.last = &done;
        // The write takes it over, also where another manager has been given one since.
        const bool isInAWrite = done.verb() == Verb::kRenew && Any(ended, [&](const Done& write) {
                                    return write.verb() != Verb::kRenew && MayPut(write.verb()) &&
                                           write.manager() == done.manager() &&
                                           write.begin <= done.begin && done.begin <= write.end &&
                                           lastGiven <= write.end;
                                });
        if ((lastGiven > done.end && !isInAWrite) ||
            (done.verb() == Verb::kWrite && IsAlone(done) && Any(ended, [&](const Done& later) {
                 return later.verb() == Verb::kRenew && later.worked &&
                        later.manager() == done.manager() &&
                        later.begin > done.begin + kSurelyLater && later.begin <= done.end;
             }))) {
            continue;
        }
        // Without a number it brings the content of its manager back, which is there already
        // unless there is or has been another manager. A failed write leaves the tag as far as it
        // got.
        if (!done.Puts(kNumber) ? m_history.HadSeveralManagers() || done.overlapsRelease
                                : !done.worked || done.failedBefore != m_history.FailedWrites()) {
            return std::nullopt;
        }
        if (done.Puts(kNumber)) {
            known.numbers.insert(ToHex(done.puts.at(kNumber)));
        }
    }
    if (known.numbers.empty()) {
        return std::nullopt;
    }
    FindFields(known);
    return known;
}

// The other fields are those of the last content, as long as only its manager has written since.
void TagRules::FindFields(Known& known) const {
    const auto& ended = m_history.Ended();
    for (const char* name : {"url", "mac", "model"}) {
        const auto last = std::find_if(ended.rbegin(), ended.rend(), [&](const Done& done) {
            return MayPut(done.verb()) && done.Puts(name);
        });
        if (last == ended.rend() || !last->worked || last->overlapsRelease ||
            last->failedBefore != m_history.FailedWrites()) {
            continue;
        }
        const bool isKept = std::all_of(ended.begin(), ended.end(), [&](const Done& done) {
            const bool renews = done.verb() == Verb::kRenew;
            const double end = done.end + (renews ? kRenewalTime : 0);
            return &done == &*last || !MayPut(done.verb()) || end <= last->begin ||
                   (renews && done.manager() == last->manager()) ||
                   (done.begin >= last->end && done.manager() == last->manager() && done.worked &&
                    !OpensDevice(done.verb()));
        });
        if (isKept) {
            known.fields[name] = last->puts.at(name);
        }
    }
}

void TagRules::JudgeTag(const std::string& memory, double now) const {
    const std::optional<Known> known = KnownTag(now);
    const std::string_view image = ImageIn(memory);
    if (!known || image.size() < imageformat::kFrameSize) {
        return;
    }
    const Command& command = *known->last->command;
    const ImageNotes notes = AnnotateImage(image);
    if (notes.fault) {
        m_findings.Expect(false, command, "a valid image on the tag", notes.fault->Text());
        return;
    }
    const auto onTag = [&](const std::string& name) {
        std::string bytes;
        for (const ImageField& field : notes.fields) {
            bytes += field.name == kImageFields.at(name) ? image.substr(field.offset, field.size)
                                                         : std::string_view();
        }
        return bytes;
    };
    ++m_findings.judged[kNumbers];
    const std::string number = ToHex(onTag(kNumber));
    m_findings.Expect(known->numbers.count(number) > 0, command,
                      "the number " + OneOf(known->numbers) + " on the tag", number);
    m_findings.judged[kFields] += known->fields.empty() ? 0 : 1;
    for (const auto& [name, value] : known->fields) {
        m_findings.Expect(onTag(name) == value, command,
                          name + " " + Shown(name, value) + " on the tag",
                          Shown(name, onTag(name)));
    }
}

void TagRules::JudgeReading(const Json& phone, const Command& tap, double begin) const {
    const auto& ended = m_history.Ended();
    const std::optional<Known> known = KnownTag(phone["t"]);
    if (!known || !m_history.ServiceAt(begin).written ||
        Any(ended, [&](const Done& done) { return MayPut(done.verb()) && done.end > begin; })) {
        return;
    }
    const auto read = [&](const char* name) {
        return phone.contains(name) ? phone[name].get<std::string>() : std::string();
    };
    ++m_findings.judged[kReadings];
    m_findings.Expect(phone["read"].get<bool>(), tap, "a phone that reads the tag",
                      read("problem"));
    if (!phone["read"].get<bool>()) {
        return;
    }
    m_findings.Expect(read("version") == kVersion, tap, "a phone that reads version 8064",
                      read("payload"));
    m_findings.Expect(known->numbers.count(read(kNumber)) > 0, tap,
                      "a phone that reads the number " + OneOf(known->numbers), read(kNumber));
    for (const auto& [name, value] : known->fields) {
        const bool isUrl = name == "url";
        const std::string wanted = isUrl ? kPrefix + value : ToHex(value);
        const std::string seen = read(isUrl ? "uri" : name.c_str());
        m_findings.Expect(seen == wanted, tap, "a phone that reads " + name + " " + wanted, seen);
    }
}

void TagRules::JudgeShown(const Json& event, const simulator::RouteKind& route) const {
    const RunHistory::Service service = m_history.ServiceAt(event["t"]);
    if (!service.written || m_history.IsFaulting()) {
        return;
    }
    ++m_findings.judged[kShown];
    const std::string number = event["number"];
    // A keyboard's answer can be missed, so that an older number stays the one that was read.
    const double since = route.IsKeyboard() ? 0 : service.since - kRenewalTime;
    m_findings.Expect(m_history.WasGiven(FromHex(number, "event"), since), m_history.Latest(),
                      "an event with a number that was given since the start", number);
}

}  // namespace lab
