// Any bytes as a log: the prefix finder, the cutting into lines, the story and its two forms.
#include <string>

#include "fuzz/Check.h"
#include "lab/explain/LogLines.h"
#include "lab/explain/Prefix.h"
#include "lab/explain/Story.h"
#include "lab/explain/StoryText.h"

namespace {

using namespace lab::explain;  // NOLINT(google-build-using-namespace)

struct Told {
    std::string text;
    std::string json;
};

// The log in pieces of `piece` bytes.
Told Explain(const std::string& log, std::size_t piece) {
    std::vector<LogLine> sample;
    LineCounts counts;
    LogLines sampled(
        "log", [&](const LogLine& line) { sample.push_back(line); }, counts);
    sampled.Take(log);
    sampled.End();
    counts = {};
    PrefixLayout layout(sample);

    Told told;
    const StoryText format(lab::Style(false), 60, 1);
    Story story([&](const lab::Json& item) {
        Check(item["line"] >= 1, "an item names a line");
        Check(item.value("ms", 0.0) >= 0, "nothing takes less than no time");
        told.text += format.ItemLines(item, true);
        told.json += JsonLine(item);
    });
    LogLines lines(
        "log",
        [&](const LogLine& line) {
            Check(line.prefix.size() + line.match.text.size() <= LogLines::kLongestPart,
                  "a line has a bound");
            story.Take(line.match, {layout.Read(line.prefix), line.number, line.file});
        },
        counts);
    for (std::size_t at = 0; at < log.size(); at += piece) {
        lines.Take(std::string_view(log).substr(at, piece));
    }
    lines.End();
    story.End();
    Check(counts.library + counts.unknown <= counts.lines, "the lines add up");
    told.text += format.Figures(story.Figures());
    told.json += JsonLine(story.Figures());
    return told;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string log = AsText(bytes, size);
    const Told told = Explain(log, std::max<std::size_t>(log.size(), 1));
    Check(Explain(log, 7).json == told.json, "the pieces of a log do not matter");
    for (const std::string* const text : {&told.text, &told.json}) {
        for (const char c : *text) {
            Check(c == '\n' || (static_cast<unsigned char>(c) >= ' ' && c != 0x7F),
                  "no control character is printed");
        }
    }
    return 0;
}
