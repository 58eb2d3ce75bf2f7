// Cancellations against answers of the relay driver: whatever comes first, a request is completed
// exactly once, and host and device process agree on how. Both sides are in this process. Needs the
// loaded driver and nobody else at its control device.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

#include "testdrivers/RelayControl.h"

namespace {

using simulator::RelayControl;

constexpr unsigned kHosts = 3;
constexpr unsigned kRequestsPerHost = 500;
constexpr std::uint64_t kLastRequest = kHosts * kRequestsPerHost + 1;
constexpr DWORD kWaitBound = 20'000;  // milliseconds
constexpr wchar_t kPath[] = L"\\\\.\\SPBNFCDRIVER";

void Check(bool holds, const std::string& what) {
    if (!holds) {
        throw std::runtime_error(what);
    }
}

// What the device process knows of a request, by the number that the host wrote into it.
struct Seen {
    unsigned deliveries = 0;
    unsigned cancellations = 0;
    bool answered = false;
};

class Device {
  public:
    Device() : m_control(TAGPORT_RELAY_SPB_CONTROL), m_thread([this] { Run(); }) {}
    ~Device() {
        m_control.Stop();
        m_thread.join();
    }

    RelayControl& control() { return m_control; }
    Seen Of(std::uint64_t number) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_seen[number];
    }
    bool clean() const { return m_clean; }
    /// From now on no request is answered.
    void BeSilent() { m_silent = true; }
    unsigned opens() const { return m_opens; }
    unsigned closes() const { return m_closes; }

  private:
    void Answer(std::uint64_t id, std::uint64_t number) {
        {
            const std::lock_guard<std::mutex> guard(m_mutex);
            m_seen[number].answered = true;
        }
        RelayAnswer answer = {};
        answer.id = id;
        answer.count = sizeof(number);
        m_clean = m_control.Answer(answer) && m_clean;
    }

    // A third is answered at once, a third after some later message, a third never.
    void Run() {
        std::mt19937 random(1);
        std::vector<std::pair<std::uint64_t, std::uint64_t>> later;
        while (const auto message = m_control.Next()) {
            std::uint64_t number = 0;
            std::memcpy(&number, message->data, sizeof(number));
            if (message->kind == kRelayOpen) {
                RelayAnswer answer = {};
                answer.id = message->id;
                m_clean = m_control.Answer(answer) && m_clean;
                ++m_opens;
            } else if (message->kind == kRelayClose) {
                ++m_closes;
            } else if (message->kind == kRelayCancel) {
                const std::lock_guard<std::mutex> guard(m_mutex);
                const auto request = m_numbers.find(message->id);
                if (request != m_numbers.end()) {  // otherwise of an opening
                    ++m_seen[request->second].cancellations;
                }
            } else {
                {
                    const std::lock_guard<std::mutex> guard(m_mutex);
                    ++m_seen[number].deliveries;
                    m_numbers[message->id] = number;
                }
                switch (m_silent ? 2 : random() % 3) {
                    case 0:
                        Answer(message->id, number);
                        break;
                    case 1:
                        later.emplace_back(message->id, number);
                        break;
                    default:
                        break;
                }
            }
            while (later.size() > 2 && !m_silent) {
                Answer(later.front().first, later.front().second);
                later.erase(later.begin());
            }
        }
    }

    RelayControl m_control;
    std::mutex m_mutex;
    std::map<std::uint64_t, Seen> m_seen;
    std::map<std::uint64_t, std::uint64_t> m_numbers;  // by request id
    std::atomic<bool> m_clean{true};
    std::atomic<bool> m_silent{false};
    std::atomic<unsigned> m_opens{0};
    std::atomic<unsigned> m_closes{0};
    std::thread m_thread;
};

// Wine gives a handle before its opening has been answered; Windows does not.
HANDLE OpenHost(const Device& device) {
    const unsigned before = device.opens();
    const HANDLE host = CreateFileW(kPath, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_OVERLAPPED, nullptr);
    Check(host != INVALID_HANDLE_VALUE,
          "the device cannot be opened, error " + std::to_string(GetLastError()));
    for (DWORD waited = 0; device.opens() == before; waited += 5) {
        Check(waited < kWaitBound, "the device process saw no opening");
        Sleep(5);
    }
    return host;
}

struct Pending {
    std::uint64_t number = 0;
    OVERLAPPED overlapped = {};
    std::uint64_t sent = 0;

    Pending(HANDLE host, std::uint64_t which) : number(which), sent(which) {
        overlapped.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        const BOOL done = WriteFile(host, &sent, sizeof(sent), nullptr, &overlapped);
        Check(!done && GetLastError() == ERROR_IO_PENDING,
              "request " + std::to_string(number) + " was not pending");
    }
    ~Pending() { CloseHandle(overlapped.hEvent); }
    Pending(const Pending&) = delete;
    Pending& operator=(const Pending&) = delete;

    /// The last-error code of its end, or zero.
    DWORD Await(HANDLE host) {
        Check(WaitForSingleObject(overlapped.hEvent, kWaitBound) == WAIT_OBJECT_0,
              "request " + std::to_string(number) + " never ended");
        DWORD moved = 0;
        const DWORD error =
            GetOverlappedResult(host, &overlapped, &moved, FALSE) ? ERROR_SUCCESS : GetLastError();
        Check(moved == (error == ERROR_SUCCESS ? sizeof(sent) : 0),
              "request " + std::to_string(number) + " moved " + std::to_string(moved) + " bytes");
        return error;
    }
};

void CheckBothSides(Device& device, std::uint64_t number, DWORD error) {
    const Seen seen = device.Of(number);
    const std::string which = "request " + std::to_string(number);
    Check(seen.deliveries <= 1 && seen.cancellations <= seen.deliveries,
          which + " was delivered or cancelled twice");
    if (error == ERROR_SUCCESS) {
        Check(seen.answered && seen.cancellations == 0, which + " succeeded without its answer");
    } else {
        Check(error == ERROR_OPERATION_ABORTED, which + " failed with " + std::to_string(error));
        Check(seen.cancellations == seen.deliveries, which + " was cancelled without a word");
    }
}

struct Storm {
    unsigned answered = 0;
    unsigned cancelled = 0;
};

void RunHost(HANDLE host, unsigned which, std::vector<std::pair<std::uint64_t, DWORD>>& ends) {
    std::mt19937 random(which + 100);
    for (unsigned turn = 0; turn < kRequestsPerHost; ++turn) {
        Pending request(host, std::uint64_t{which} * kRequestsPerHost + turn + 1);
        // From far before to far after a usual answer.
        for (unsigned spin = random() % 4000; spin > 0; --spin) {
            YieldProcessor();
        }
        if (random() % 2 == 0) {
            WaitForSingleObject(request.overlapped.hEvent, 1 + random() % 8);
        }
        if (!CancelIoEx(host, &request.overlapped)) {
            Check(GetLastError() == ERROR_NOT_FOUND, "a cancellation failed with another error");
        }
        ends.emplace_back(request.number, request.Await(host));
    }
}

// A request that was completed twice would be here twice.
std::uint64_t CountEnds(HANDLE port) {
    constexpr DWORD kQuiet = 200;  // milliseconds after which no further end is expected
    std::uint64_t ends = 0;
    DWORD moved = 0;
    ULONG_PTR key = 0;
    for (;; ++ends) {
        OVERLAPPED* which = nullptr;
        GetQueuedCompletionStatus(port, &moved, &key, &which, kQuiet);
        if (which == nullptr) {
            return ends;
        }
    }
}

Storm RunStorm(Device& device) {
    const HANDLE host = OpenHost(device);
    const HANDLE port = CreateIoCompletionPort(host, nullptr, 0, 1);
    Check(port != nullptr, "no completion port, error " + std::to_string(GetLastError()));
    std::vector<std::vector<std::pair<std::uint64_t, DWORD>>> ends(kHosts);
    std::vector<std::string> problems(kHosts);
    std::vector<std::thread> hosts;
    for (unsigned which = 0; which < kHosts; ++which) {
        hosts.emplace_back([&, which] {
            try {
                RunHost(host, which, ends[which]);
            } catch (const std::exception& problem) {
                problems[which] = problem.what();
            }
        });
    }
    for (std::thread& one : hosts) {
        one.join();
    }
    for (const std::string& problem : problems) {
        Check(problem.empty(), problem);
    }
    // Closing ends what is pending, and its word is the last that comes: the rest has arrived then.
    device.BeSilent();
    Pending last(host, kLastRequest);
    CloseHandle(host);
    Check(WaitForSingleObject(last.overlapped.hEvent, kWaitBound) == WAIT_OBJECT_0,
          "the closing of the handle left a request pending");
    for (DWORD waited = 0; device.closes() == 0; waited += 10) {
        Check(waited < kWaitBound, "no word of the closing");
        Sleep(10);
    }
    CheckBothSides(device, kLastRequest, ERROR_OPERATION_ABORTED);
    const std::uint64_t counted = CountEnds(port);
    CloseHandle(port);
    Check(counted == kLastRequest, std::to_string(kLastRequest) + " requests have ended " +
                                       std::to_string(counted) + " times");
    Storm storm;
    for (const auto& hostEnds : ends) {
        for (const auto& [number, error] : hostEnds) {
            CheckBothSides(device, number, error);
            ++(error == ERROR_SUCCESS ? storm.answered : storm.cancelled);
        }
    }
    Check(device.clean(), "an answer was refused");
    return storm;
}

// The driver has no buffer for a control code of another method than the buffered one.
void RefuseUnbuffered(HANDLE host) {
    for (const DWORD code : {0x04001C01, 0x04001C02, 0x04001C03}) {
        std::uint64_t in = 0;
        std::uint64_t out = 0;
        OVERLAPPED overlapped = {};
        overlapped.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        DWORD moved = 0;
        const bool refused =
            !DeviceIoControl(host, code, &in, sizeof(in), &out, sizeof(out), nullptr,
                             &overlapped) &&
            (GetLastError() != ERROR_IO_PENDING ||
             (WaitForSingleObject(overlapped.hEvent, kWaitBound) == WAIT_OBJECT_0 &&
              !GetOverlappedResult(host, &overlapped, &moved, FALSE))) &&
            GetLastError() == ERROR_INVALID_FUNCTION;
        CloseHandle(overlapped.hEvent);
        Check(refused, "the control code " + std::to_string(code) + " was not refused");
    }
}

void RunUnplugging(Device& device) {
    const HANDLE host = OpenHost(device);
    RefuseUnbuffered(host);
    Pending request(host, 0);
    Check(device.control().Plug(kRelayI2c, false) == 0, "the device could not be unplugged");
    const DWORD error = request.Await(host);
    Check(error == ERROR_DEVICE_NOT_CONNECTED, "an unplugged device gave " + std::to_string(error));
    Check(CreateFileW(kPath, GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED,
                      nullptr) == INVALID_HANDLE_VALUE &&
              GetLastError() == ERROR_FILE_NOT_FOUND,
          "an unplugged device can be opened");
    // The former device lives as long as this handle, and the new one does not mind.
    Check(device.control().Plug(kRelayI2c, true) == 0, "the device could not be plugged again");
    const HANDLE again = OpenHost(device);
    std::uint64_t byte = 0;
    OVERLAPPED overlapped = {};
    overlapped.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    DWORD moved = 0;
    Check(!ReadFile(host, &byte, 1, nullptr, &overlapped) &&
              (GetLastError() == ERROR_DEVICE_NOT_CONNECTED ||
               (GetLastError() == ERROR_IO_PENDING &&
                !GetOverlappedResult(host, &overlapped, &moved, TRUE) &&
                GetLastError() == ERROR_DEVICE_NOT_CONNECTED)),
          "a handle of an unplugged device still reads");
    CloseHandle(overlapped.hEvent);
    CloseHandle(host);
    CloseHandle(again);
}

}  // namespace

int main() {
    try {
        HANDLE orphan = nullptr;
        std::unique_ptr<Pending> pending;
        {
            Device device;
            Check(device.control().Plug(kRelayI2c, true) == 0, "the device could not be plugged");
            const Storm storm = RunStorm(device);
            std::printf("%u requests answered, %u cancelled\n", storm.answered, storm.cancelled);
            Check(storm.answered > kRequestsPerHost / 10 && storm.cancelled > kRequestsPerHost / 10,
                  "the storm was one-sided");
            RunUnplugging(device);
            orphan = OpenHost(device);  // of a silent device
            pending = std::make_unique<Pending>(orphan, 0);
        }
        // The device process has gone.
        const DWORD error = pending->Await(orphan);
        Check(error == ERROR_DEVICE_NOT_CONNECTED,
              "without the device process a request gave " + std::to_string(error));
        CloseHandle(orphan);
    } catch (const std::exception& problem) {
        std::printf("FAILED: %s\n", problem.what());
        std::fflush(stdout);
        return 1;
    }
    return 0;
}
