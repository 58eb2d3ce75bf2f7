// One log line: formatting, the wide stream, and a sink that only counts.
#include <benchmark/benchmark.h>

#include "diagnostics/Log.h"

namespace {

void Count(int /*level*/, const std::wstring& line, void* context) {
    *static_cast<std::size_t*>(context) += line.size();
}

void OneLine(benchmark::State& state) {
    std::size_t characters = 0;
    TraceLogger::SetSink(&Count, &characters);
    for (auto _ : state) {
        LogWarnFun("m_uri (payload) length is %d", 50);
    }
    TraceLogger::SetSink(nullptr, nullptr);
    if (characters == 0) {
        state.SkipWithError("no line reached the sink");
    }
}
BENCHMARK(OneLine);

}  // namespace
