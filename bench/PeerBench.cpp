// The codec beside the NDEF classes of Qt, on the 143-byte image of PC types 5 and 8: from the
// fields to the image, and from the image to the four fields. Without logging.
#include <benchmark/benchmark.h>

#include "bench/Peer.h"
#include "tagimage/NfcData.h"

namespace {

struct Content {
    std::string uri = std::string(50, 'u');
    std::uint8_t mac[6] = {2, 17, 34, 51, 68, 85};
    std::uint8_t number[32] = {1, 2, 3};
    std::uint8_t model[4] = {0, 0, 8, 0};
};

std::string BuildOurs(const Content& content) {
    NfcData data;
    const bool done = data.Init() && data.InitValue() && data.SetMacAddr(content.mac) &&
                      data.SetUrl(content.uri) && data.SetRandomNumber(content.number) &&
                      data.SetModel(content.model);
    return done ? data.GetContent() : std::string();
}

std::string BuildTheirs(const Content& content) {
    std::string body("\x80\x64");
    body.append(content.mac, content.mac + sizeof(content.mac));
    body.append(content.number, content.number + sizeof(content.number));
    body.append(content.model, content.model + sizeof(content.model));
    return peer::Build({content.uri, std::string(g_mimeType), body});
}

struct Read {
    std::string uri;
    std::string mac;
    std::string number;
    std::string model;

    bool operator==(const Read& other) const {
        return uri == other.uri && mac == other.mac && number == other.number &&
               model == other.model;
    }
};

Read ReadOurs(const std::string& image) {
    NfcData data;
    if (!data.Init() || !data.Parse(image)) {
        return {};
    }
    return {data.GetUrl(), data.GetMacAddr(), data.GetRandomNumber(), data.GetModel()};
}

Read ReadTheirs(const std::string& image) {
    peer::Fields fields = peer::Parse(image);
    if (fields.body.size() != imageformat::kBodySize) {
        return {};
    }
    return {std::move(fields.uri), fields.body.substr(2, 6), fields.body.substr(8, 32),
            fields.body.substr(40, 4)};
}

template <std::string (*Function)(const Content&)>
void Build(benchmark::State& state) {
    const Content content;
    if (BuildOurs(content) != BuildTheirs(content)) {
        state.SkipWithError("the two images differ");
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(Function(content));
    }
}
BENCHMARK_TEMPLATE(Build, BuildOurs);
BENCHMARK_TEMPLATE(Build, BuildTheirs);

template <Read (*Function)(const std::string&)>
void ParseImage(benchmark::State& state) {
    const std::string image = BuildOurs({});
    if (!(ReadOurs(image) == ReadTheirs(image)) || ReadOurs(image).uri.empty()) {
        state.SkipWithError("the two readers differ");
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(Function(image));
    }
}
BENCHMARK_TEMPLATE(ParseImage, ReadOurs);
BENCHMARK_TEMPLATE(ParseImage, ReadTheirs);

// The parser alone, without the copies of the fields.
void ParseOnlyOurs(benchmark::State& state) {
    const std::string image = BuildOurs({});
    for (auto _ : state) {
        NfcData data;
        benchmark::DoNotOptimize(data.Init() && data.Parse(image));
        benchmark::DoNotOptimize(data);
    }
}
BENCHMARK(ParseOnlyOurs);

void ParseOnlyTheirs(benchmark::State& state) {
    const std::string image = BuildOurs({});
    const QByteArray records = peer::Bytes(
        std::string_view(image).substr(peer::kTlvHead, static_cast<std::uint8_t>(image[1])));
    for (auto _ : state) {
        benchmark::DoNotOptimize(QNdefMessage::fromByteArray(records));
    }
}
BENCHMARK(ParseOnlyTheirs);

}  // namespace
