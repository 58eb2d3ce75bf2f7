// Reading a log: what `explain` does with each byte in one pass, and beside it the counting of its
// lines, which is what `wc -l` does. bytes_per_second of the two gives the ratio.
#include <benchmark/benchmark.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <string>

#include "lab/explain/LogLines.h"
#include "lab/explain/PrefixLayout.h"
#include "lab/explain/Story.h"

namespace {

using namespace lab::explain;  // NOLINT(google-build-using-namespace)

constexpr std::size_t kSize = std::size_t{16} << 20;

struct Line {
    int milliseconds;  // since the line before
    int thread;
    const char* text;
};
// A number is renewed, and a phone visits.
constexpr std::array<Line, 14> kLines{{
    {500, 100, "NFC_WriteRandNum done(LogWarnFun)"},
    {0, 400, "NfcWriteTag totalLen=143, block num=9(LogWarnFun)"},
    {90, 400, "Nfc CheckWriteTag ret: 1(LogWarnFun)"},
    {0, 400, "LocalWriteRand WriteNfcContent Write Chip Successful(LogWarnFun)"},
    {0, 400, "NFC ReadRandNumber regAddr = 122 (LogWarnFun)"},
    {10, 400, "Nfc data: 684e9a8e3849b4090010001b6563dc99(LogWarnFun)"},
    {30, 400, "LocalWriteRand ReadRandNum Successful(LogWarnFun)"},
    {900, 200, "NFC_SELECT_IN_FIELD 1st report(LogWarnFun)"},
    {0, 200, "NFC Wait For Kernel Interrupt...(LogWarnFun)"},
    {20, 200, "NFC_SELECT_IN_FIELD no report(LogWarnFun)"},
    {350, 300, "NFC_phone still in field(LogWarnFun)"},
    {350, 300, "[NFC] RF field has left(LogWarnFun)"},
    {0, 300, "NFC_defer call done: 684E9A8E3849B409(LogWarnFun)"},
    {0, 300, "NFC_begin wait notify(LogWarnFun)"},
}};

std::string MakeLog() {
    std::string log;
    long long now = 0;
    while (log.size() < kSize) {
        for (const Line& line : kLines) {
            now += line.milliseconds;
            std::array<char, 128> prefix{};
            std::snprintf(prefix.data(), prefix.size(),
                          "2026-11-%02lld %02lld:%02lld:%02lld.%03lld [4711:%d] W ",
                          1 + now / 86'400'000 % 28, now / 3'600'000 % 24, now / 60'000 % 60,
                          now / 1000 % 60, now % 1000, line.thread);
            log += prefix.data();
            log += line.text;
            log += '\n';
        }
    }
    return log;
}

const std::string& TheLog() {
    static const std::string log = MakeLog();
    return log;
}

void CountLines(benchmark::State& state) {
    const std::string& log = TheLog();
    for (auto _ : state) {
        std::size_t lines = 0;
        const char* at = log.data();
        const char* const end = at + log.size();
        while ((at = static_cast<const char*>(
                    std::memchr(at, '\n', static_cast<std::size_t>(end - at)))) != nullptr) {
            ++lines;
            ++at;
        }
        benchmark::DoNotOptimize(lines);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * log.size()));
}
BENCHMARK(CountLines)->Unit(benchmark::kMillisecond);

void ExplainLog(benchmark::State& state) {
    const std::string& log = TheLog();
    PrefixSample sample;
    LogLines first([&](const LogLine& line) { sample.Add(line); });
    first.Take(std::string_view(log).substr(0, std::size_t{1} << 20));
    const PrefixLayout layout = sample.Find();
    std::size_t items = 0;
    for (auto _ : state) {
        PrefixLayout own = layout;
        Story story([&](const Item&) { ++items; });
        LogLines lines([&](const LogLine& line) {
            const Origin origin = own.Read(line.prefix);
            story.Take({line.number, line.match, origin.time, origin.micros, origin.process,
                        origin.thread});
        });
        lines.Take(log);
        lines.End();
        story.End();
    }
    if (items == 0) {
        state.SkipWithError("nothing was explained");
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * log.size()));
}
BENCHMARK(ExplainLog)->Unit(benchmark::kMillisecond);

}  // namespace
