// "phone TIME 1|0 URI TYPE PAYLOAD PROBLEM", 1 for a tag that was read, and "bus KIND TIME THREAD
// ERROR PATH [KIND CODE LENGTH DATA BYTES]". Bytes and texts that may hold blanks are hexadecimal;
// "-" stands for none.
#include "testdrivers/DeviceLines.h"

#include <sstream>
#include <utility>

namespace simulator {

namespace {

constexpr char kPhone[] = "phone";
constexpr char kBus[] = "bus";
constexpr char kNone[] = "-";

// Bytes in a line. A failed stream stays failed, so a caller looks at it once.
struct Hex {
    Bytes bytes;

    Hex() = default;
    explicit Hex(Bytes from) : bytes(std::move(from)) {}
    explicit Hex(const std::string& text) : bytes(text.begin(), text.end()) {}
    std::string Text() const { return {bytes.begin(), bytes.end()}; }
};

std::ostream& operator<<(std::ostream& out, const Hex& hex) {
    return out << HexOf(hex.bytes);
}

std::istream& operator>>(std::istream& in, Hex& hex) {
    std::string text;
    in >> text;
    hex.bytes = BytesOf(text);
    return in;
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
    line << kPhone << ' ' << report.time << ' ' << report.read << ' '
         << Hex(report.reading.uri.value_or("")) << ' ' << Hex(report.reading.mimeType) << ' '
         << Hex(report.reading.mimePayload) << ' ' << Hex(report.problem);
    return line.str();
}

std::optional<PhoneReport> PhoneFrom(const std::string& line) {
    std::istringstream in(line);
    std::string word;
    PhoneReport report;
    Hex uri;
    Hex mimeType;
    Hex payload;
    Hex problem;
    in >> word >> report.time >> report.read >> uri >> mimeType >> payload >> problem;
    if (report.read) {
        report.reading.uri = uri.Text();
    }
    report.reading.mimeType = mimeType.Text();
    report.reading.mimePayload = payload.bytes;
    report.problem = problem.Text();
    return in && word == kPhone ? std::optional(report) : std::nullopt;
}

std::string LineOf(const emulation::TraceEvent& event) {
    std::ostringstream line;
    line << kBus << ' ' << static_cast<int>(event.kind) << ' ' << event.time << ' ' << event.thread
         << ' ' << event.error << ' ' << Hex(event.text);
    if (event.request != nullptr) {
        const emulation::Request& request = *event.request;
        line << ' ' << static_cast<int>(request.kind()) << ' ' << request.controlCode() << ' '
             << request.length() << ' ' << Hex(request.data()) << ' ' << Hex(event.bytes);
    }
    return line.str();
}

std::optional<emulation::TraceEvent> TraceFrom(const std::string& line) {
    std::istringstream in(line);
    std::string word;
    emulation::TraceEvent event;
    int kind = 0;
    Hex text;
    if (!(in >> word >> kind >> event.time >> event.thread >> event.error >> text) ||
        word != kBus) {
        return std::nullopt;
    }
    event.kind = static_cast<emulation::TraceEvent::Kind>(kind);
    event.text = text.Text();
    int requestKind = 0;
    DWORD code = 0;
    std::size_t length = 0;
    Hex data;
    Hex bytes;
    if (in >> requestKind >> code >> length >> data >> bytes) {
        event.bytes = bytes.bytes;
        event.count = event.bytes.size();
        event.request =
            std::make_shared<SeenRequest>(static_cast<emulation::Request::Kind>(requestKind), code,
                                          data.bytes, length, event.thread);
    }
    const bool isWhole =
        event.request != nullptr || event.kind == emulation::TraceEvent::Kind::kOpen;
    return isWhole ? std::optional(event) : std::nullopt;
}

}  // namespace simulator
