// The three benchmarks of CodecBench.cpp with the NDEF classes of Qt. tests/tagimage/PeerTest.cpp
// checks that the images and what is read are the same.
#include <benchmark/benchmark.h>

#include "bench/Peer.h"
#include "tagimage/NfcData.h"

namespace {

std::string Image() {
    std::string body("\x80\x64\2\x11\x22\x33\x44\x55\1\2\3");
    body.resize(40);  // the rest of the number
    return peer::Build(
        {std::string(50, 'u'), std::string(g_mimeType), body + std::string("\0\0\b\0", 4)});
}

void BuildQt(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(Image());
    }
}
BENCHMARK(BuildQt);

void ReadQt(benchmark::State& state) {
    const std::string image = Image();
    for (auto _ : state) {
        const peer::Fields fields = peer::Parse(image);
        if (fields.body.size() != imageformat::kBodySize) {
            state.SkipWithError("the image was refused");
        }
        benchmark::DoNotOptimize(fields.body.substr(2, 6));
        benchmark::DoNotOptimize(fields.body.substr(8, 32));
        benchmark::DoNotOptimize(fields.body.substr(40, 4));
    }
}
BENCHMARK(ReadQt);

void ParseQt(benchmark::State& state) {
    const std::string image = Image();
    const QByteArray records = peer::Bytes(
        std::string_view(image).substr(peer::kTlvHead, static_cast<std::uint8_t>(image[1])));
    for (auto _ : state) {
        benchmark::DoNotOptimize(QNdefMessage::fromByteArray(records));
    }
}
BENCHMARK(ParseQt);

}  // namespace
