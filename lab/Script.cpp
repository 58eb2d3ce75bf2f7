// Parses a script. Reads nothing but the text that it is given.
#include "lab/Script.h"

#include <algorithm>

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
constexpr std::string_view kBlanks = " \t\r";

/// The words of a line before its comment. A '#' begins a comment only at the beginning of a word:
/// "write#3=never" is one word.
std::vector<std::string_view> WordsOf(std::string_view text) {
    std::vector<std::string_view> words;
    std::size_t at = text.find_first_not_of(kBlanks);
    while (at != std::string_view::npos && text[at] != '#') {
        const std::size_t end = std::min(text.find_first_of(kBlanks, at), text.size());
        words.push_back(text.substr(at, end - at));
        at = text.find_first_not_of(kBlanks, end);
    }
    return words;
}

/// One line, word by word.
class Line {
  public:
    Line(const std::string& file, std::size_t number, std::string_view text)
        : m_place(file + ":" + std::to_string(number) + ": "), m_words(WordsOf(text)) {}

    /// The form of what comes next, for messages.
    Line& Expect(std::string_view form) {
        m_form = form;
        return *this;
    }
    bool Done() const { return m_next == m_words.size(); }
    std::string Next() {
        RefuseFormIf(Done(), "the line ends too early");
        return std::string(m_words[m_next++]);
    }
    /// The text from the next word on, as written; these words are taken.
    std::string Rest() {
        const std::string text = Text();
        m_next = m_words.size();
        return text;
    }
    std::string Text() const {
        return Done() ? std::string()
                      : std::string(m_words[m_next].data(),
                                    m_words.back().data() + m_words.back().size());
    }
    std::int64_t Number(std::int64_t least, std::int64_t most) {
        return Whole(Next(), least, most);
    }
    std::int64_t Whole(const std::string& word, std::int64_t least, std::int64_t most) const {
        const auto value = WholeNumber<std::int64_t>(word).value_or(least - 1);
        RefuseFormIf(value < least || value > most, Quoted(word) + " is not a whole number from " +
                                                        std::to_string(least) + " to " +
                                                        std::to_string(most));
        return value;
    }
    std::string Bytes(const std::string& word, std::size_t count = 0) const {
        return AtPlace(m_place, [&] {
            return count == 0 ? FromHex(word, "value " + Quoted(word))
                              : HexValue(word, count, "value");
        });
    }
    [[noreturn]] void Fail(const std::string& problem) const { throw WrongCall(m_place + problem); }
    void RefuseIf(bool wrong, const std::string& problem) const {
        lab::RefuseIf(wrong, m_place + problem);
    }
    void RefuseFormIf(bool wrong, const std::string& problem) const {
        RefuseIf(wrong, problem + "; expected: " + m_form);
    }

  private:
    std::string m_place;
    std::string m_form;
    std::vector<std::string_view> m_words;
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
        const std::string entry = line.Next();
        const std::size_t sign = entry.find('=');
        const std::string name = entry.substr(0, sign);
        const std::string known = "[" + name + (sign == std::string::npos ? "]" : "=");
        line.RefuseFormIf(word.form.find(known) == std::string::npos,
                          "unknown field " + Quoted(entry));
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
            line.Whole(value, 0, kMaxMilliseconds);
        }
        command.fields[name] = value;
    }
}

/// One of two words; true for the first.
bool TakeSwitch(Line& line, const char* kind, const char* on, const char* off) {
    const std::string word = line.Next();
    line.RefuseFormIf(word != on && word != off, std::string("unknown ") + kind + Quoted(word));
    return word == on;
}

void TakeArguments(Line& line, const Word& word, Command& command) {
    const Verb verb = command.verb;
    if (verb == Verb::kWait || (verb == Verb::kTap && !line.Done())) {
        command.number = line.Number(0, kMaxMilliseconds);
    } else if (verb == Verb::kChipStatus) {
        command.number = line.Number(0, kMaxByte);
    } else if (verb == Verb::kRepeat) {
        command.number = line.Number(1, kMaxRepeats);
    } else if (verb == Verb::kSend) {
        command.argument = line.Bytes(line.Next());
    } else if (verb == Verb::kRenew && !line.Done()) {
        const std::string number = line.Next();
        command.argument = number == "random" ? "" : line.Bytes(number, kNumberSize);
    } else if (verb == Verb::kFault) {
        line.RefuseFormIf(line.Done(), "the plan is missing");
        command.argument = line.Rest();
    } else if (verb == Verb::kChipBits) {
        for (const std::size_t size : {2U, 1U, 1U}) {
            command.argument += line.Bytes(line.Next(), size);
        }
    } else if (verb == Verb::kReadMessage) {
        command.on = !line.Done();
        line.RefuseFormIf(command.on && line.Next() != "own", "only \"own\" can follow");
    } else if (verb == Verb::kListener) {
        command.on = TakeSwitch(line, "state ", "on", "off");
    } else if (verb == Verb::kExpectEvent && TakeSwitch(line, "expectation ", "event", "result")) {
        command.number = line.Number(1, 4);
        line.RefuseFormIf(line.Next() != "within", "\"within\" is missing");
        command.within = line.Number(0, kMaxMilliseconds);
    } else if (verb == Verb::kExpectEvent) {
        command.verb = Verb::kExpectResult;
        command.on = TakeSwitch(line, "result ", "OK", "FAIL");
    }
    if (IsOneOf(verb, {Verb::kTap, Verb::kSend}) && !line.Done()) {
        command.route = NameIn(line, line.Next(), "route", NamesOf(simulator::kRouteKinds));
    }
    if ((word.flags & kFields) != 0) {
        TakeFields(line, word, command);
    }
    line.RefuseFormIf(!line.Done(), "too much: " + Quoted(line.Text()));
}

void TakeCommand(Line& line, const std::string& name, bool hasManager, Command& command) {
    const std::vector<Word>& words = ScriptWords();
    const auto word = std::find_if(words.begin(), words.end(),
                                   [&](const Word& one) { return name == one.Name(); });
    if (word == words.end()) {
        std::vector<std::string> known;
        for (const Word& one : words) {
            known.push_back(one.Name());
        }
        const std::string commands = Joined(known);
        known.insert(known.end(), {"end", "at", "in", "on", "host", "manager"});
        line.Fail("unknown command " + Quoted(name) + "; expected: " + commands +
                  ", end, or a prefix: at, in, on, host, manager" + Suggestion(known, name));
    }
    const auto refuse = [&](bool given, const char* prefix, const char* right) {
        line.RefuseIf(given, Quoted(prefix) + " cannot come before " + Quoted(name) + "; " + right);
    };
    refuse(command.in && (word->flags & kIn) == 0, "in",
           "expected: tap, enter, leave, send or chip-status");
    refuse(hasManager && (word->flags & kManager) == 0, "manager",
           "expected: an operation of a manager");
    refuse(command.host != 0 && (word->flags & kScriptOnly) != 0, "host",
           "it belongs to the script itself");
    command.verb = word->verb;
    line.Expect(word->form);
    TakeArguments(line, *word, command);
}

/// A line may say "at MS" alone.
void ParseCommand(Line& line, Command& command) {
    const auto number = [&](const char* form, std::int64_t least, std::int64_t most) {
        return line.Expect(form).Number(least, most);
    };
    std::optional<unsigned> manager;
    while (true) {
        const std::string word = line.Expect("a command after its prefixes").Next();
        if (word == "at") {
            command.at = number("at MS [COMMAND]", 0, kMaxMilliseconds);
            if (line.Done()) {
                command.number = 0;  // a wait
                return;
            }
        } else if (word == "in") {
            command.in = number("in MS COMMAND", 0, kMaxMilliseconds);
        } else if (word == "on") {
            command.only = NamesIn(line, line.Expect("on NAME[,NAME...] COMMAND").Next(),
                                   "route or chip", RoutesAndChips());
        } else if (word == "host") {
            command.host = static_cast<unsigned>(number("host N COMMAND", 1, kMostHosts));
        } else if (word == "manager") {
            manager = static_cast<unsigned>(number("manager N COMMAND", 1, kMostManagers));
        } else {
            command.manager = manager.value_or(1);
            TakeCommand(line, word, manager.has_value(), command);
            return;
        }
    }
}

}  // namespace

std::int64_t NumberOf(const Fields& fields, const std::string& name, std::int64_t otherwise) {
    const auto found = fields.find(name);
    return found == fields.end() ? otherwise : std::stoll(found->second);
}

Fields Script::PcSettings() const {
    return !commands.empty() && commands[0].verb == Verb::kPc ? commands[0].fields : Fields{};
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
    for (const std::string& content : Split(WithoutByteOrderMark(text), '\n')) {
        Line line(script.file, ++number, content);
        if (line.Done()) {
            continue;
        }
        Command command;
        command.line = number;
        command.text = line.Text();
        if (command.text == "end") {
            line.RefuseIf(open.size() == 1, R"("end" without a "repeat" before it)");
            open.pop_back();
            continue;
        }
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
