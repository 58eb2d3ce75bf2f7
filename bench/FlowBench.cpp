// Whole operations of a host against simulated devices. A process has one clock, so the program
// takes the name of one case; scripts/bench runs all of them.
//
//   write        processor time of WriteMessage on the scheduled clock, where pauses take no time.
//                The log has a sink that counts characters.
//
//   write-quiet  the same without a sink
//
//   renew        real time until WriteRandNum returns
//
//   report       real time from the completion of the keyboard's read to the listener
#include <tagport/NfcManager.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "platform/emulation/Kernel.h"
#include "platform/services/TraceLog.h"
#include "simulator/Pc.h"

namespace {

using simulator::PcRoute;
using Samples = std::vector<double>;  // microseconds

// The simulated bus takes almost no time, so that the library is measured and not the bus.
constexpr emulation::Micros kBusLatency = 1;

double WallNow() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration<double, std::micro>(now).count();
}

double ProcessorNow() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

void Require(bool worked, const char* what) {
    if (!worked) {
        std::fprintf(stderr, "flow_bench: %s failed\n", what);
        std::exit(1);
    }
}

// Time of the last call of the listener. Written on the thread that delivers, read by the
// measurement.
std::atomic<double> g_deliveredAt{0};

void Listen(int /*event*/, const std::uint8_t (&/*number*/)[32], int /*route*/) {
    g_deliveredAt = WallNow();
}

// Called on any thread.
void CountCharacters(int /*level*/, const std::wstring& line, void* context) {
    *static_cast<std::atomic<std::size_t>*>(context) += line.size();
}

std::shared_ptr<NdefMessage> Message(unsigned count) {
    const std::uint8_t mac[6] = {2, 17, 34, 51, 68, 85};
    const std::uint8_t model[4] = {0, 0, 5, 0};
    std::uint8_t number[32];
    std::fill(std::begin(number), std::end(number), static_cast<std::uint8_t>(1 + count % 255));
    auto message = std::make_shared<NdefMessage>();
    message->SetUrl(std::string(50, 'u'));
    message->SetMac(mac);
    message->SetRandomNumber(number);
    message->SetModel(model);
    message->SetPcType(5);
    return message;
}

struct Host {
    explicit Host(PcRoute route) : pc({route}, "fm11nt082c") {
        if (simulator::SpbDriver* const spb = pc.spb()) {
            spb->SetBusLatency(kBusLatency);
        }
        manager = NfcManager::Create(Message(0), &Listen);
        Require(manager != nullptr && manager->DeviceInit(), "the start");
        Require(route != PcRoute::kHid || manager->SetMcuKbConnectStatus(true), "the keyboard");
        Write(0);
    }
    void Write(unsigned count) { Require(manager->WriteMessage(Message(count)) == 0, "a write"); }

    simulator::Pc pc;
    std::shared_ptr<NfcManager> manager;
};

void Report(const char* name, Samples samples, double aim) {
    std::sort(samples.begin(), samples.end());
    const auto at = [&samples](double part) {
        return samples[static_cast<std::size_t>(part * static_cast<double>(samples.size() - 1))];
    };
    std::printf("%-12s median %10.3f us, 10%% %10.3f, 90%% %10.3f, of %zu, aim < %g us: %s\n", name,
                at(0.5), at(0.1), at(0.9), samples.size(), aim, at(0.5) < aim ? "met" : "MISSED");
}

Samples Repeat(unsigned count, const std::function<double(unsigned)>& sample) {
    Samples samples;
    for (unsigned i = 1; i <= count; ++i) {
        samples.push_back(sample(i));
    }
    return samples;
}

void WriteOnScheduledClock(const char* name, bool sink) {
    std::atomic<std::size_t> characters{0};
    emulation::UseScheduledClock({});
    Host host(PcRoute::kI2c);
    if (sink) {
        TraceLogger::SetSink(&CountCharacters, &characters);
    }
    const Samples samples = Repeat(300, [&host](unsigned i) {
        const double before = ProcessorNow();
        host.Write(i);
        return ProcessorNow() - before;
    });
    TraceLogger::SetSink(nullptr, nullptr);
    Require(sink == (characters > 0), "counting the log");
    Report(name, samples, 300);
}

// As long as the condition holds.
template <typename Condition>
void WaitWhile(Condition holds, const char* what) {
    while (holds()) {
        emulation::WaitFor([] { return false; }, emulation::kMillisecond, what);
    }
}

void Renew() {
    Host host(PcRoute::kI2c);
    const std::size_t threads = emulation::Live().threads;
    const Samples samples = Repeat(30, [&](unsigned i) {
        std::uint8_t number[32];
        std::fill(std::begin(number), std::end(number), static_cast<std::uint8_t>(100 + i));
        const double before = WallNow();
        Require(host.manager->WriteRandNum(number) == 0, "a renewal");
        const double took = WallNow() - before;
        // One at a time: the thread that writes the number ends first.
        WaitWhile([threads] { return emulation::Live().threads > threads; }, "the number");
        return took;
    });
    Report("renew", samples, 100);
}

void FieldReport() {
    Host host(PcRoute::kHid);
    std::atomic<double> completedAt{0};
    emulation::SetTracer([&completedAt](const emulation::TraceEvent& event) {
        if (event.kind == emulation::TraceEvent::Kind::kDone &&
            event.request->kind() == emulation::Request::Kind::kRead) {
            completedAt = WallNow();
        }
    });
    const Samples samples = Repeat(500, [&](unsigned i) {
        g_deliveredAt = 0;
        {
            const emulation::DeviceLock lock;
            host.pc.keyboard()->SendField(i % 2 != 0);
        }
        WaitWhile([] { return g_deliveredAt == 0; }, "the report");
        return g_deliveredAt - completedAt;
    });
    emulation::SetTracer({});
    Report("report", samples, 200);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string name = argc == 2 ? argv[1] : "";
    if (name == "write" || name == "write-quiet") {
        WriteOnScheduledClock(name.c_str(), name == "write");
    } else if (name == "renew") {
        Renew();
    } else if (name == "report") {
        FieldReport();
    } else {
        std::fprintf(stderr, "usage: flow_bench write|write-quiet|renew|report\n");
        return 2;
    }
}
