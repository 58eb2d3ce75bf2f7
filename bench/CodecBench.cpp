// The codec on the 143-byte image of PC types 5 and 8, without logging: from the fields to the
// image, from the image to the fields, and the parser alone. PeerBench.cpp does the same with Qt.
#include <benchmark/benchmark.h>

#include "tagimage/NfcData.h"

namespace {

constexpr std::size_t kImageSize = 143;

std::string Image() {
    NfcData data;
    const std::uint8_t number[32] = {1, 2, 3};
    const bool done = data.Init() && data.InitValue() && data.SetMacAddr({2, 17, 34, 51, 68, 85}) &&
                      data.SetUrl(std::string(50, 'u')) && data.SetRandomNumber(number) &&
                      data.SetModel({0, 0, 8, 0});
    return done ? data.GetContent() : std::string();
}

void Build(benchmark::State& state) {
    if (Image().size() != kImageSize) {
        state.SkipWithError("the image does not have the expected size");
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(Image());
    }
}
BENCHMARK(Build);

void Read(benchmark::State& state) {
    const std::string image = Image();
    for (auto _ : state) {
        NfcData data;
        if (!data.Init() || !data.Parse(image)) {
            state.SkipWithError("the image was refused");
        }
        benchmark::DoNotOptimize(data.GetUrl());
        benchmark::DoNotOptimize(data.GetMacAddr());
        benchmark::DoNotOptimize(data.GetRandomNumber());
        benchmark::DoNotOptimize(data.GetModel());
    }
}
BENCHMARK(Read);

void Parse(benchmark::State& state) {
    const std::string image = Image();
    for (auto _ : state) {
        NfcData data;
        benchmark::DoNotOptimize(data.Init() && data.Parse(image));
        benchmark::DoNotOptimize(data);
    }
}
BENCHMARK(Parse);

}  // namespace
