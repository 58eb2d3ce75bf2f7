// The public simulator: a thin layer over Pc, the emulation and the stand-in logger.
#include <tagport/Simulator.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <mutex>
#include <set>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "platform/NeverDestroyed.h"
#include "platform/emulation/Kernel.h"
#include "platform/services/TraceLog.h"
#include "simulator/Pc.h"

namespace tagport {

namespace {

using simulator::PcRoute;

static_assert(kKeyboardAddress == simulator::kDefaultBleAddress);
static_assert(kUntilTakenAway.count() == simulator::kUntilTakenAway);

// The condition of a wait in real time is looked at so often.
constexpr emulation::Micros kPollInterval = emulation::kMillisecond;

// Parts of the media-type record's payload.
constexpr std::size_t kPayloadSize = 44;
constexpr std::ptrdiff_t kMacOffset = 2;
constexpr std::ptrdiff_t kNumberOffset = 8;
constexpr std::ptrdiff_t kModelOffset = 40;

void RefuseIf(bool wrong, const std::string& problem) {
    if (wrong) {
        throw std::invalid_argument(problem);
    }
}

emulation::Micros Span(Time time) {
    RefuseIf(time < Time::zero(),
             "a span of time is negative: " + std::to_string(time.count()) + " us");
    return std::min(time, kWithoutEnd).count();
}

emulation::Micros SpanWithEnd(Time time) {
    RefuseIf(time >= kWithoutEnd,
             "a span of time has no end: " + std::to_string(time.count()) + " us");
    return Span(time);
}

// What the recorder has. The library's threads may log while the process ends.
struct Record {
    std::mutex mutex;
    bool wanted = false;
    std::vector<LogLine> lines;
};
platform::NeverDestroyed<Record> g_record;

void TakeLine(int level, const std::wstring& line, void* /*context*/) {
    std::string text(line.size(), '\0');  // the library widens byte by byte
    std::transform(line.begin(), line.end(), text.begin(),
                   [](wchar_t unit) { return static_cast<char>(unit); });
    const Time now(emulation::Now());
    const std::lock_guard<std::mutex> guard(g_record.value.mutex);
    if (g_record.value.wanted) {
        g_record.value.lines.push_back({now, level, std::move(text)});
    }
}

PhoneReading ReadingOf(const simulator::PhoneReport& report) {
    PhoneReading reading;
    reading.time = Time(report.time);
    reading.read = report.read;
    reading.problem = report.problem;
    reading.uri = report.reading.uri.value_or("");
    reading.type = report.reading.mimeType;
    reading.payload = report.reading.mimePayload;
    if (reading.payload.size() == kPayloadSize) {
        const auto begin = reading.payload.begin();
        reading.mac.assign(begin + kMacOffset, begin + kNumberOffset);
        reading.number.assign(begin + kNumberOffset, begin + kModelOffset);
        reading.model.assign(begin + kModelOffset, reading.payload.end());
    }
    return reading;
}

PcRoute Inner(Route route) {
    const simulator::RouteKind* const kind = simulator::RouteByNumber(static_cast<int>(route));
    if (kind == nullptr) {
        throw std::invalid_argument("there is no route " + std::to_string(static_cast<int>(route)));
    }
    return kind->route;
}

std::vector<PcRoute> Checked(const std::vector<Route>& routes, const std::string& chip) {
    std::vector<PcRoute> inner(routes.size());
    std::transform(routes.begin(), routes.end(), inner.begin(), Inner);
    RefuseIf(inner.empty() || std::set<PcRoute>(inner.begin(), inner.end()).size() != inner.size(),
             "a PC needs at least one route, and each only once");
    const std::string problem = simulator::ChipProblem(inner, chip);
    RefuseIf(!problem.empty(), "chip \"" + chip + "\": " + problem);
    return inner;
}

std::atomic<bool> g_pcExists{false};

// Marks the process's only PC.
class OnlyPc {
  public:
    OnlyPc() {
        if (g_pcExists.exchange(true)) {
            throw std::logic_error("there is a SimulatedPc already");
        }
    }
    ~OnlyPc() { g_pcExists = false; }
    OnlyPc(const OnlyPc&) = delete;
    OnlyPc& operator=(const OnlyPc&) = delete;
};

}  // namespace

void UseScheduledClock(std::uint64_t seed) {
    if (emulation::IsUsed()) {
        throw std::logic_error(
            "UseScheduledClock must come once, before the first use of library and simulator");
    }
    emulation::ScheduledOptions options;
    options.seed = seed;
    emulation::UseScheduledClock(options);
}

Time Now() {
    return Time(emulation::Now());
}

void Advance(Time time) {
    emulation::WaitFor([] { return false; }, SpanWithEnd(time), "Advance");
}

bool WaitFor(const std::function<bool()>& condition, Time limit) {
    RefuseIf(condition == nullptr, "the function is empty");
    const emulation::Micros span = Span(limit);
    const bool hasEnd = limit < kWithoutEnd;
    if (emulation::IsScheduled()) {
        // Without a deadline: a run in which nothing else is due is seen to make no progress.
        return emulation::WaitFor(condition, hasEnd ? span : emulation::kForever, "WaitFor");
    }
    // In real time a condition may depend on threads that the layer does not know.
    const emulation::Micros begin = emulation::Now();
    while (!condition()) {
        const emulation::Micros left = span - (emulation::Now() - begin);
        if (hasEnd && left <= 0) {
            return false;
        }
        emulation::WaitFor([] { return false; }, std::min(left, kPollInterval), "WaitFor");
    }
    return true;
}

void StartThread(std::function<void()> body) {
    using Body = std::function<void()>;
    RefuseIf(body == nullptr, "the function is empty");
    const LPTHREAD_START_ROUTINE run = [](LPVOID argument) -> DWORD {
        (*std::unique_ptr<Body>(static_cast<Body*>(argument)))();
        return 0;
    };
    auto owned = std::make_unique<Body>(std::move(body));
    const HANDLE thread = CreateThread(nullptr, 0, run, owned.get(), 0, nullptr);
    if (thread == nullptr) {
        throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
    }
    owned.release();  // NOLINT(bugprone-unused-return-value): the thread owns it
    CloseHandle(thread);
}

LiveCounts Live() {
    const emulation::LiveCounts live = emulation::Live();
    return {live.handles, live.threads, live.requests};
}

LogRecorder::LogRecorder() {
    const std::lock_guard<std::mutex> guard(g_record.value.mutex);
    if (std::exchange(g_record.value.wanted, true)) {
        throw std::logic_error("there is a LogRecorder already");
    }
    TraceLogger::SetSink(TakeLine, nullptr);
}

LogRecorder::~LogRecorder() {
    TraceLogger::SetSink(nullptr, nullptr);
    const std::lock_guard<std::mutex> guard(g_record.value.mutex);
    g_record.value.wanted = false;
    g_record.value.lines.clear();
}

std::vector<LogLine> LogRecorder::Lines() const {
    const std::lock_guard<std::mutex> guard(g_record.value.mutex);
    return g_record.value.lines;
}

void LogRecorder::Clear() {
    const std::lock_guard<std::mutex> guard(g_record.value.mutex);
    g_record.value.lines.clear();
}

struct SimulatedPhone::Visit {
    // Apart from the phone, which would otherwise hold a pointer to itself in its report.
    struct Result {
        std::mutex mutex;
        std::optional<PhoneReading> reading;
    };
    std::shared_ptr<Result> result;
    std::shared_ptr<simulator::PhoneVisit> phone;
};

SimulatedPhone::SimulatedPhone(std::shared_ptr<Visit> visit) : m_visit(std::move(visit)) {}

bool SimulatedPhone::Gone() const {
    return m_visit->phone->Gone();
}

std::optional<PhoneReading> SimulatedPhone::Reading() const {
    const std::lock_guard<std::mutex> guard(m_visit->result->mutex);
    return m_visit->result->reading;
}

void SimulatedPhone::TakeAway() {
    m_visit->phone->TakeAway();
}

struct SimulatedPc::Impl {
    Impl(const std::vector<Route>& given, const std::string& chip)
        : routes(Checked(given, chip)), pc(routes, chip) {}

    std::shared_ptr<SimulatedPhone::Visit> Bring(PcRoute route, Time stay, Time after) {
        using Result = SimulatedPhone::Visit::Result;
        auto result = std::make_shared<Result>();
        auto phone = pc.TapPhone(route, Span(after), Span(stay),
                                 [result](const simulator::PhoneReport& report) {
                                     const std::lock_guard<std::mutex> guard(result->mutex);
                                     result->reading = ReadingOf(report);
                                 });
        return std::make_shared<SimulatedPhone::Visit>(
            SimulatedPhone::Visit{std::move(result), std::move(phone)});
    }

    std::vector<PcRoute> routes;
    OnlyPc only;
    simulator::Pc pc;
};

SimulatedPc::SimulatedPc(Route route, const std::string& chip)
    : SimulatedPc(std::vector<Route>{route}, chip) {}

SimulatedPc::SimulatedPc(const std::vector<Route>& routes, const std::string& chip)
    : m_impl(std::make_unique<Impl>(routes, chip)) {}

SimulatedPc::~SimulatedPc() = default;

PhoneReading SimulatedPc::Tap(Time stay) {
    const SimulatedPhone phone = BringPhone(Time(SpanWithEnd(stay)));
    emulation::WaitFor([&] { return phone.Gone(); }, emulation::kForever, "the phone of Tap");
    return phone.Reading().value();  // a phone that leaves has read or failed
}

SimulatedPhone SimulatedPc::BringPhone(Time stay, Time after) {
    return SimulatedPhone(m_impl->Bring(m_impl->routes.front(), stay, after));
}

SimulatedPhone SimulatedPc::BringPhone(Route route, Time stay, Time after) {
    const auto& routes = m_impl->routes;
    RefuseIf(std::find(routes.begin(), routes.end(), Inner(route)) == routes.end(),
             "the PC does not have route " + std::to_string(static_cast<int>(route)));
    return SimulatedPhone(m_impl->Bring(Inner(route), stay, after));
}

void SimulatedPc::Unplug() {
    m_impl->pc.Unplug();
}

void SimulatedPc::Plug() {
    m_impl->pc.Plug();
}

void SimulatedPc::SetFaults(const std::string& plan) {
    std::string error;
    const auto faults = simulator::PcFaults::Parse(plan, m_impl->routes, error);
    if (!faults) {
        throw std::invalid_argument(error);
    }
    m_impl->pc.SetFaults(*faults);
}

}  // namespace tagport
