// Parses a script. Reads nothing but the text that it is given.
#include "lab/Script.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "lab/Failure.h"
#include "lab/Hex.h"
#include "lab/ScriptWords.h"
#include "lab/Words.h"
#include "manager/Limits.h"
#include "simulator/PcKinds.h"
#include "tagimage/ImageGeometry.h"

namespace lab {

namespace {

using imageformat::kMacSize;
using imageformat::kModelSize;
using imageformat::kNumberSize;

constexpr std::int64_t kMaxMilliseconds = 1'000'000'000;
constexpr std::int64_t kMaxRepeats = 1'000'000;
constexpr std::int64_t kMaxByte = 255;
constexpr std::size_t kMaxNested =
    16;  // nested "repeat"s; each one uses the parser's and the player's stack
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::vector<std::string> WordsOf(std::string_view text) {
    std::vector<std::string> words;
    std::size_t at = 0;
    while ((at = text.find_first_not_of(" \t", at)) != std::string_view::npos) {
        const std::size_t end = std::min(text.find_first_of(" \t", at), text.size());
        words.emplace_back(text.substr(at, end - at));
        at = end;
    }
    return words;
}

/// One line, word by word.
class Line {
  public:
    Line(const std::string& file, std::size_t number, std::string_view text)
        : m_file(file), m_number(number), m_text(text), m_words(WordsOf(text)) {}

    bool Done() const { return m_next == m_words.size(); }
    const std::string& Peek() const { return m_words[m_next]; }
    std::string Next(const char* usage) {
        RefuseIf(Done(), "the line ends too early; expected: " + std::string(usage));
        return m_words[m_next++];
    }
    /// The text after the words taken so far, as written.
    std::string Rest() {
        std::size_t at = 0;
        for (std::size_t word = 0; word < m_next; ++word) {
            at = m_text.find(m_words[word], at) + m_words[word].size();
        }
        m_next = m_words.size();
        at = m_text.find_first_not_of(" \t", at);
        return at == std::string_view::npos ? std::string() : std::string(m_text.substr(at));
    }
    std::int64_t Number(const char* usage, std::int64_t least, std::int64_t most) {
        return Whole(Next(usage), usage, least, most);
    }
    std::int64_t Whole(const std::string& word, const char* usage, std::int64_t least,
                       std::int64_t most) const {
        std::int64_t value = 0;
        const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
        RefuseIf(error != std::errc() || end != word.data() + word.size() || value < least ||
                     value > most,
                 Quoted(word) + " is not a whole number from " + std::to_string(least) + " to " +
                     std::to_string(most) + "; expected: " + usage);
        return value;
    }
    std::string Bytes(const std::string& word, std::size_t count = 0) const {
        try {
            return count == 0 ? FromHex(word, "value " + Quoted(word))
                              : HexValue(word, count, "value");
        } catch (const WrongCall& problem) {
            Fail(problem.what());
        }
    }
    void RefuseIf(bool wrong, const std::string& problem) const {
        if (wrong) {
            Fail(problem);
        }
    }
    [[noreturn]] void Fail(const std::string& problem) const {
        throw WrongCall(m_file + ":" + std::to_string(m_number) + ": " + problem);
    }

  private:
    const std::string& m_file;
    std::size_t m_number;
    std::string_view m_text;
    std::vector<std::string> m_words;
    std::size_t m_next = 0;
};

/// One of the names in `known`.
std::string NameIn(const Line& line, const std::string& name, const char* kind,
                   const std::vector<std::string>& known) {
    line.RefuseIf(std::find(known.begin(), known.end(), name) == known.end(),
                  std::string("unknown ") + kind + " " + Quoted(name) +
                      "; expected: " + Joined(known) + Suggestion(known, name));
    return name;
}

/// A list of names, separated by commas.
std::vector<std::string> NamesIn(const Line& line, const std::string& list, const char* kind,
                                 const std::vector<std::string>& known) {
    std::vector<std::string> names = Split(list, ',');
    for (const std::string& name : names) {
        NameIn(line, name, kind, known);
    }
    return names;
}

std::vector<std::string> RoutesAndChips() {
    std::vector<std::string> places = NamesOf(simulator::kRouteKinds);
    const std::vector<std::string> chips = NamesOf(simulator::kChipKinds);
    places.insert(places.end(), chips.begin(), chips.end());
    return places;
}

void TakeFields(Line& line, const Word& word, Command& command) {
    while (!line.Done()) {
        const std::string entry = line.Next(word.usage);
        const std::size_t sign = entry.find('=');
        const std::string name = entry.substr(0, sign);
        const std::string known = "[" + name + (sign == std::string::npos ? "]" : "=");
        line.RefuseIf(std::string_view(word.usage).find(known) == std::string_view::npos,
                      "unknown field " + Quoted(entry) + "; expected: " + word.usage);
        std::string value = sign == std::string::npos ? "" : entry.substr(sign + 1);
        if (name == "url") {
            line.RefuseIf(value.size() > kMaxUrlSize || value.empty(),
                          "url " + Quoted(value) + ": " + Counted(value.size(), "byte") +
                              ": 1 to " + std::to_string(kMaxUrlSize) + " can be given");
        } else if (name == "mac" || name == "model" || name == "number") {
            value = line.Bytes(
                value, name == "mac" ? kMacSize : (name == "model" ? kModelSize : kNumberSize));
        } else if (name == "route") {
            NamesIn(line, value, "route", NamesOf(simulator::kRouteKinds));
        } else if (name == "chip") {
            NameIn(line, value, "chip", NamesOf(simulator::kChipKinds));
        } else if (sign != std::string::npos) {
            line.Whole(value, word.usage, 0, kMaxMilliseconds);
        }
        command.fields[name] = value;
    }
}

void TakeExpectation(Line& line, const Word& word, Command& command) {
    const std::string what = line.Next(word.usage);
    if (what == "event") {
        command.verb = Verb::kExpectEvent;
        command.number = line.Number(word.usage, 1, 4);
        line.RefuseIf(line.Next(word.usage) != "within",
                      std::string("\"within\" is missing; expected: ") + word.usage);
        command.within = line.Number(word.usage, 0, kMaxMilliseconds);
    } else if (what == "result") {
        command.verb = Verb::kExpectResult;
        const std::string result = line.Next(word.usage);
        line.RefuseIf(result != "OK" && result != "FAIL",
                      "unknown result " + Quoted(result) + "; expected: OK or FAIL");
        command.on = result == "OK";
    } else {
        line.Fail("unknown expectation " + Quoted(what) + "; expected: " + word.usage);
    }
}

std::int64_t TakeWhole(Line& line, const Word& word) {
    return word.takes == Takes::kByte    ? line.Number(word.usage, 0, kMaxByte)
           : word.takes == Takes::kCount ? line.Number(word.usage, 1, kMaxRepeats)
                                         : line.Number(word.usage, 0, kMaxMilliseconds);
}

void TakeArguments(Line& line, const Word& word, Command& command) {
    if (word.takes == Takes::kOptionalMs) {
        if (!line.Done()) {
            command.number = TakeWhole(line, word);
        }
    } else if (word.takes == Takes::kBytes) {
        command.argument = line.Bytes(line.Next(word.usage));
    } else if (word.takes == Takes::kMs || word.takes == Takes::kByte ||
               word.takes == Takes::kCount) {
        command.number = TakeWhole(line, word);
    } else if (word.takes == Takes::kNumber) {
        if (!line.Done()) {
            const std::string number = line.Next(word.usage);
            command.argument = number == "random" ? "" : line.Bytes(number, kNumberSize);
        }
    } else if (word.takes == Takes::kPlan) {
        line.RefuseIf(line.Done(), std::string("the plan is missing; expected: ") + word.usage);
        command.argument = line.Rest();
    } else if (word.takes == Takes::kBits) {
        for (const std::size_t size : {2U, 1U, 1U}) {
            command.argument += line.Bytes(line.Next(word.usage), size);
        }
    } else if (word.takes == Takes::kOwn) {
        command.on = !line.Done();
        line.RefuseIf(command.on && line.Next(word.usage) != "own",
                      std::string("only \"own\" can follow; expected: ") + word.usage);
    } else if (word.takes == Takes::kSwitch) {
        const std::string state = line.Next(word.usage);
        line.RefuseIf(state != "on" && state != "off",
                      "unknown state " + Quoted(state) + "; expected: " + word.usage);
        command.on = state == "on";
    } else if (word.takes == Takes::kExpect) {
        TakeExpectation(line, word, command);
    }
    if (IsOneOf(command.verb, {Verb::kTap, Verb::kSend}) && !line.Done()) {
        command.route =
            NameIn(line, line.Next(word.usage), "route", NamesOf(simulator::kRouteKinds));
    }
    if ((word.flags & kFields) != 0) {
        TakeFields(line, word, command);
    }
    if (!line.Done()) {
        line.Fail("too much: " + Quoted(line.Peek()) + "; expected: " + word.usage);
    }
}

void TakeCommand(Line& line, const std::string& word, bool hasManager, Command& command) {
    const std::vector<Word>& words = ScriptWords();
    const auto found =
        std::find_if(words.begin(), words.end(), [&](const Word& one) { return word == one.name; });
    if (found == words.end()) {
        std::vector<std::string> known = NamesOf(words);
        known.insert(known.end(), {"end", "at", "in", "on", "host", "manager"});
        line.Fail("unknown command " + Quoted(word) + "; expected: " + Joined(NamesOf(words)) +
                  ", end, or a prefix: at, in, on, host, manager" + Suggestion(known, word));
    }
    const auto refuse = [&](bool given, const char* prefix, const char* right) {
        line.RefuseIf(given, Quoted(prefix) + " cannot come before " + Quoted(word) + "; " + right);
    };
    refuse(command.in && (found->flags & kIn) == 0, "in",
           "expected: tap, enter, leave, send or chip-status");
    refuse(hasManager && (found->flags & kManager) == 0, "manager",
           "expected: an operation of a manager");
    refuse(command.host != 0 && (found->flags & kScriptOnly) != 0, "host",
           "it belongs to the script itself");
    command.verb = found->verb;
    TakeArguments(line, *found, command);
}

/// A line may say "at MS" alone.
void ParseCommand(Line& line, Command& command) {
    std::optional<unsigned> manager;
    while (true) {
        const std::string word = line.Next("a command after its prefixes");
        if (word == "at") {
            command.at = line.Number("at MS [COMMAND]", 0, kMaxMilliseconds);
            if (line.Done()) {
                command.number = 0;  // a wait
                return;
            }
        } else if (word == "in") {
            command.in = line.Number("in MS COMMAND", 0, kMaxMilliseconds);
        } else if (word == "on") {
            command.only = NamesIn(line, line.Next("on NAME[,NAME...] COMMAND"), "route or chip",
                                   RoutesAndChips());
        } else if (word == "host") {
            command.host = static_cast<unsigned>(line.Number("host N COMMAND", 1, kMostHosts));
        } else if (word == "manager") {
            manager = static_cast<unsigned>(line.Number("manager N COMMAND", 1, kMostManagers));
        } else {
            command.manager = manager.value_or(1);
            TakeCommand(line, word, manager.has_value(), command);
            return;
        }
    }
}

}  // namespace

std::map<std::string, std::string> Script::PcSettings() const {
    const bool given = !commands.empty() && commands[0].verb == Verb::kPc;
    return given ? commands[0].fields : std::map<std::string, std::string>{};
}

std::string Script::PcPlace() const {
    return file + ":" + std::to_string(commands.empty() ? 0 : commands[0].line) + ": pc ";
}

std::string Script::PlaceOf(const Command& command) const {
    return file + ":" + std::to_string(command.line) + ": " + command.text + ": ";
}

bool IsOneOf(Verb verb, std::initializer_list<Verb> verbs) {
    return std::find(verbs.begin(), verbs.end(), verb) != verbs.end();
}

Script ParseScript(const std::string& file, std::string_view text) {
    Script script{file, {}};
    // The command lists of the open "repeat"s, the innermost last. Each list belongs to the last
    // command of the list before it, which does not grow while the inner one is open.
    std::vector<std::vector<Command>*> open{&script.commands};
    std::size_t number = 0;
    std::size_t at = text.rfind(kByteOrderMark, 0) == 0 ? kByteOrderMark.size() : 0;
    while (at <= text.size()) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        std::string_view content = text.substr(at, end - at);
        at = end + 1;
        ++number;
        // A '#' begins a comment only at the beginning of a word: "write#3=never" is one word.
        for (std::size_t sign = content.find('#'); sign != std::string_view::npos;
             sign = content.find('#', sign + 1)) {
            if (sign == 0 || content[sign - 1] == ' ' || content[sign - 1] == '\t') {
                content = content.substr(0, sign);
                break;
            }
        }
        const std::size_t last = content.find_last_not_of(" \t\r");
        if (last == std::string_view::npos) {
            continue;
        }
        content = content.substr(0, last + 1);
        content.remove_prefix(content.find_first_not_of(" \t"));

        Line line(script.file, number, content);
        if (content == "end") {
            line.RefuseIf(open.size() == 1, R"("end" without a "repeat" before it)");
            open.pop_back();
            continue;
        }
        Command command;
        command.line = number;
        command.text = content;
        ParseCommand(line, command);
        line.RefuseIf(command.verb == Verb::kPc && (open.size() > 1 || !script.commands.empty()),
                      R"("pc" can only be the first command)");
        open.back()->push_back(std::move(command));
        if (open.back()->back().verb == Verb::kRepeat) {
            line.RefuseIf(open.size() > kMaxNested, "more than " + std::to_string(kMaxNested) +
                                                        " \"repeat\"s inside one another");
            open.push_back(&open.back()->back().body);
        }
    }
    if (open.size() > 1) {
        const Command& unclosed = (*open[open.size() - 2]).back();
        throw WrongCall(file + ":" + std::to_string(unclosed.line) + ": " + Quoted(unclosed.text) +
                        " has no \"end\"");
    }
    return script;
}

}  // namespace lab
