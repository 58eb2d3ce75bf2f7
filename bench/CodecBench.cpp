// Building and parsing the 143-byte image of PC types 5 and 8, without logging.
#include <benchmark/benchmark.h>

#include "tagimage/NfcData.h"

namespace {

constexpr std::size_t kImageSize = 143;

NfcData Filled() {
    NfcData data;
    const std::uint8_t number[32] = {1, 2, 3};
    if (!data.Init() || !data.InitValue() || !data.SetMacAddr({2, 17, 34, 51, 68, 85}) ||
        !data.SetUrl(std::string(50, 'u')) || !data.SetRandomNumber(number) ||
        !data.SetModel({0, 0, 8, 0})) {
        return NfcData();
    }
    return data;
}

void Build(benchmark::State& state) {
    const NfcData data = Filled();
    if (data.GetContent().size() != kImageSize) {
        state.SkipWithError("the image does not have the expected size");
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(data.GetContent());
    }
}
BENCHMARK(Build);

void Parse(benchmark::State& state) {
    const std::string image = Filled().GetContent();
    for (auto _ : state) {
        NfcData data;
        if (!data.Init() || !data.Parse(image)) {
            state.SkipWithError("the image was refused");
        }
        benchmark::DoNotOptimize(data);
    }
}
BENCHMARK(Parse);

// From an empty object to the image, and back into an empty object.
void BuildAndParse(benchmark::State& state) {
    for (auto _ : state) {
        const std::string image = Filled().GetContent();
        NfcData data;
        if (!data.Init() || !data.Parse(image)) {
            state.SkipWithError("the image was refused");
        }
        benchmark::DoNotOptimize(data);
    }
}
BENCHMARK(BuildAndParse);

}  // namespace
