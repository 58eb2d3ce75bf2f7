// Collects what a report shows and puts it into the page.
#include "lab/Report.h"

#include <algorithm>
#include <utility>

#include "lab/Embedded.h"
#include "lab/Failure.h"
#include "lab/Files.h"
#include "lab/Hex.h"
#include "lab/ImageNotes.h"
#include "lab/Words.h"
#include "simulator/PcKinds.h"
#include "tagimage/ImageGeometry.h"

namespace lab {

namespace {

constexpr char kOption[] = "--report ";
constexpr char kFactsMark[] = "@FACTS@";
constexpr char kObjectsMark[] = "@OBJECTS@";

/// JSON in ASCII, in which < > and & occur only inside texts: escaped, no text can end the element
/// that holds the data or begin another one.
std::string ForPage(std::string_view json) {
    std::string text;
    text.reserve(json.size() + json.size() / 16);
    for (const char character : json) {
        const bool isMarkup = character == '<' || character == '>' || character == '&';
        text +=
            isMarkup ? "\\u00" + ToHex(std::string_view(&character, 1)) : std::string(1, character);
    }
    return text;
}

Json LayoutOf(const ImageNotes& notes) {
    Json layout = Json::array();
    for (const ImageField& field : notes.fields) {
        layout.push_back({{"offset", field.offset},
                          {"size", field.size},
                          {"name", field.name},
                          {"meaning", field.meaning}});
    }
    return layout;
}

bool IsBlank(const std::string& memory) {
    return memory.find_first_not_of('\0') == std::string::npos;
}

}  // namespace

Report::Report(std::string file) : m_file(std::move(file)) {
    RefuseIf(m_file.empty() || m_file == "-",
             kOption + (m_file.empty() ? "\"\"" : m_file) + ": a file name is needed");
    CheckReplaceable(kOption + m_file, m_file);
    // The configuration's directory may become the current one.
    m_path = std::filesystem::absolute(m_file);
}

void Report::AddObject(std::string_view object) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_objects += (m_count == 0 ? "" : ",\n") + ForPage(object);
    ++m_count;
}

void Report::EndField(double at) {
    for (Json& stretch : m_field) {
        if (stretch["to"].is_null()) {
            stretch["to"] = at;
        }
    }
}

void Report::AddField(const Command& command, double now) {
    const double at = now + static_cast<double>(command.in.value_or(0));
    if (command.verb == Verb::kTap) {
        const auto stay = static_cast<double>(command.number.value_or(kDefaultStay));
        m_field.push_back({{"from", at}, {"to", at + stay}, {"route", command.route}});
    } else if (IsOneOf(command.verb, {Verb::kEnter, Verb::kLeave})) {
        EndField(at);
        if (command.verb == Verb::kEnter) {
            m_field.push_back({{"from", at}, {"to", nullptr}, {"route", ""}});
        }
    }
}

void Report::AddStep(const Player::Step& step, double now) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    std::vector<std::size_t>& running = m_running[step.command.host];
    if (step.begins) {
        AddField(step.command, now);
        running.push_back(m_steps.size());
        m_steps.push_back({{"t", now},
                           {"end", nullptr},
                           {"after", m_count},
                           {"line", step.command.line},
                           {"text", ValidUtf8(step.command.text)},
                           {"host", step.command.host},
                           {"block", step.command.verb == Verb::kRepeat},
                           {"succeeded", nullptr}});
        return;
    }
    if (!running.empty()) {
        Json& ended = m_steps[running.back()];
        running.pop_back();
        ended["end"] = now;
        ended["succeeded"] = step.succeeded ? Json(*step.succeeded) : Json();
    }
}

void Report::AddTag(const std::string& memory, double now, const std::string& label, bool last) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (memory.empty() || (!m_states.empty() && memory == m_lastMemory && !last)) {
        return;
    }
    m_lastMemory = memory;
    const bool blank = IsBlank(memory);
    const std::string_view image = blank ? memory : ImageIn(memory);
    const ImageNotes notes = blank ? ImageNotes{} : AnnotateImage(image);
    const Json layout = LayoutOf(notes);
    auto found = std::find(m_layouts.begin(), m_layouts.end(), layout);
    if (found == m_layouts.end()) {
        m_layouts.push_back(layout);
        found = m_layouts.end() - 1;
    }
    Json state{{"t", now},         {"label", ValidUtf8(label)},
               {"blank", blank},   {"size", blank ? 0 : image.size()},
               {"fault", nullptr}, {"layout", found - m_layouts.begin()}};
    if (notes.fault) {
        state["fault"] = {{"offset", notes.fault->offset}, {"check", notes.fault->check}};
    }
    state["remarks"] = notes.remarks;
    state["bytes"] = ToHex(memory);
    m_states.push_back(std::move(state));
}

void Report::Write(Json facts, double now) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    facts["end"] = now;
    facts["routes"] = Json::array({"?"});  // by the listener's number
    for (const simulator::RouteKind& route : simulator::kRouteKinds) {
        facts["routes"].push_back(route.title);
    }
    facts["steps"] = std::move(m_steps);
    EndField(now);
    facts["field"] = std::move(m_field);
    facts["tag"] = {{"register", imageformat::kFirstRegister},
                    {"layouts", std::move(m_layouts)},
                    {"states", std::move(m_states)}};
    std::string page = Embedded("report.html");
    // The second mark first: what replaces the first one may hold any text.
    page.replace(page.find(kObjectsMark), sizeof(kObjectsMark) - 1, m_objects + "\n");
    page.replace(page.find(kFactsMark), sizeof(kFactsMark) - 1,
                 ForPage(facts.dump(-1, ' ', true, Json::error_handler_t::replace)));
    WriteFile(kOption + m_file, m_path, page);
}

}  // namespace lab
