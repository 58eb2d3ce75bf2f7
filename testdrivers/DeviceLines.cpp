// "phone TIME read|failed ..." and "bus KIND TIME THREAD ERROR ...". Bytes and texts that may hold
// blanks are hexadecimal; "-" stands for none.
#include "testdrivers/DeviceLines.h"

#include <sstream>
#include <utility>

namespace simulator {

namespace {

constexpr char kPhone[] = "phone";
constexpr char kBus[] = "bus";
constexpr char kNone[] = "-";

std::string HexOf(const std::string& text) {
    return simulator::HexOf(Bytes(text.begin(), text.end()));
}

// A failed stream stays failed, so a caller looks at it once.
Bytes ReadHex(std::istream& in) {
    std::string text;
    in >> text;
    return BytesOf(text);
}

std::string ReadText(std::istream& in) {
    const Bytes bytes = ReadHex(in);
    return {bytes.begin(), bytes.end()};
}

bool StartsWith(std::istream& in, const char* word) {
    std::string first;
    return in >> first && first == word;
}

// A request as somebody else saw it.
class SeenRequest : public emulation::Request {
  public:
    SeenRequest(Kind kind, DWORD code, Bytes data, std::size_t length, emulation::ThreadId thread)
        : Request(kind, code, std::move(data), length, thread) {}
    bool Pending() const override { return false; }
    void Complete(const std::uint8_t* /*bytes*/, std::size_t /*count*/) override {}
    void Fail(DWORD /*error*/, std::size_t /*count*/) override {}
};

}  // namespace

std::string HexOf(const Bytes& bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += kDigits[byte >> 4U];
        text += kDigits[byte & 0xFU];
    }
    return text.empty() ? kNone : text;
}

Bytes BytesOf(const std::string& hex) {
    Bytes bytes;
    for (std::size_t at = 0; hex != kNone && at + 1 < hex.size(); at += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(hex.substr(at, 2), nullptr, 16)));
    }
    return bytes;
}

std::string LineOf(const PhoneReport& report) {
    std::ostringstream line;
    line << kPhone << ' ' << report.time << ' ';
    if (report.read) {
        line << "read " << HexOf(report.reading.uri.value_or("")) << ' '
             << HexOf(report.reading.mimeType) << ' ' << HexOf(report.reading.mimePayload);
    } else {
        line << "failed " << HexOf(report.problem);
    }
    return line.str();
}

std::optional<PhoneReport> PhoneFrom(const std::string& line) {
    std::istringstream in(line);
    PhoneReport report;
    std::string outcome;
    if (!StartsWith(in, kPhone) || !(in >> report.time >> outcome)) {
        return std::nullopt;
    }
    report.read = outcome == "read";
    if (report.read) {
        report.reading.uri = ReadText(in);
        report.reading.mimeType = ReadText(in);
        report.reading.mimePayload = ReadHex(in);
    } else {
        report.problem = ReadText(in);
    }
    return in ? std::optional(report) : std::nullopt;
}

std::string LineOf(const emulation::TraceEvent& event) {
    std::ostringstream line;
    line << kBus << ' ' << static_cast<int>(event.kind) << ' ' << event.time << ' ' << event.thread
         << ' ' << event.error << ' ';
    if (event.request == nullptr) {
        line << HexOf(event.text);
    } else {
        const emulation::Request& request = *event.request;
        line << static_cast<int>(request.kind()) << ' ' << request.controlCode() << ' '
             << request.length() << ' ' << HexOf(request.data()) << ' ' << HexOf(event.bytes);
    }
    return line.str();
}

std::optional<emulation::TraceEvent> TraceFrom(const std::string& line) {
    std::istringstream in(line);
    emulation::TraceEvent event;
    int kind = 0;
    if (!StartsWith(in, kBus) || !(in >> kind >> event.time >> event.thread >> event.error)) {
        return std::nullopt;
    }
    event.kind = static_cast<emulation::TraceEvent::Kind>(kind);
    if (event.kind == emulation::TraceEvent::Kind::kOpen) {
        event.text = ReadText(in);
    } else {
        int requestKind = 0;
        DWORD code = 0;
        std::size_t length = 0;
        in >> requestKind >> code >> length;
        Bytes data = ReadHex(in);
        event.bytes = ReadHex(in);
        event.count = event.bytes.size();
        event.request =
            std::make_shared<SeenRequest>(static_cast<emulation::Request::Kind>(requestKind), code,
                                          std::move(data), length, event.thread);
    }
    return in ? std::optional(event) : std::nullopt;
}

}  // namespace simulator
