// The relay driver by itself: every request ends exactly once, and host and device process, both in
// this process, agree on how. Needs the loaded driver and nobody else at its devices.
#include <atomic>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "testdrivers/DriverService.h"
#include "testdrivers/NtStatus.h"
#include "testdrivers/RelayControl.h"

namespace {

constexpr std::uint64_t kRequests = 600;
constexpr DWORD kQuiet = 300;  // milliseconds after which no further end is expected

void Check(bool holds, const char* what) {
    if (!holds) {
        throw std::runtime_error(what + (", error " + std::to_string(GetLastError())));
    }
}

// The device process. It answers every opening and, when it is willing, every second write.
struct Device {
    simulator::RelayControl control{TAGPORT_RELAY_SPB_CONTROL};
    std::map<std::uint64_t, int> held;  // a request's deliveries less its cancellations
    std::atomic<unsigned> counts[kRelayCancel + 1] = {};
    std::thread thread;
    explicit Device(bool willing) : thread([this, willing] { Run(willing); }) {
        Check(control.Plug(kRelayI2c, 1) == 0, "the device is not plugged");
    }
    ~Device() {
        control.Stop();
        thread.join();
    }
    void Await(RelayKind kind) const {
        for (; counts[kind] == 0; Sleep(1)) {
        }
    }
    void Run(bool willing) {
        std::map<std::uint64_t, std::uint64_t> numbers;  // what the host has sent, by the id
        while (const auto message = control.Next()) {
            std::uint64_t& number = numbers[message->id];
            const bool write = message->kind == kRelayWrite;
            std::memcpy(&number, message->data, message->dataSize);  // of a write alone
            held[number] += write ? 1 : message->kind == kRelayCancel ? -1 : 0;
            const RelayAnswer answer = {message->id, 0, message->dataSize, 0, 0, {}};
            if (message->kind == kRelayOpen || (write && willing && number % 2 == 0)) {
                control.Answer(answer);
            }
            ++counts[message->kind];
        }
    }
};

HANDLE Open() {
    return CreateFileW(L"\\\\.\\SPBNFCDRIVER", GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                       OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
}

// A host whose requests end at a completion port, which would show a second end of one.
struct Host {
    struct Request {
        OVERLAPPED overlapped = {};
        std::uint64_t number = 0;
    };
    explicit Host(const Device& device) { device.Await(kRelayOpen); }

    HANDLE handle = Open();
    HANDLE port = CreateIoCompletionPort(handle, nullptr, 0, 1);
    std::vector<Request> requests = std::vector<Request>(kRequests);
    std::map<std::uint64_t, DWORD> ends;  // the error of each

    void Send(std::uint64_t number, DWORD expected = ERROR_IO_PENDING) {
        Request& request = requests[number];
        request.number = number;
        const bool ended =
            WriteFile(handle, &request.number, sizeof(number), nullptr, &request.overlapped);
        Check((ended ? ERROR_SUCCESS : GetLastError()) == expected, "a request begins otherwise");
    }
    std::size_t CountEnds() {
        OVERLAPPED_ENTRY entry = {};
        while (true) {
            OVERLAPPED*& which = entry.lpOverlapped;
            const BOOL good = GetQueuedCompletionStatus(port, &entry.dwNumberOfBytesTransferred,
                                                        &entry.lpCompletionKey, &which, kQuiet);
            if (which == nullptr) {
                return ends.size();
            }
            const std::uint64_t number = CONTAINING_RECORD(which, Request, overlapped)->number;
            Check(ends.emplace(number, good ? 0 : GetLastError()).second, "an end came twice");
            Check(!good || entry.dwNumberOfBytesTransferred == sizeof(number), "not all written");
        }
    }
};

void CancelAgainstAnswers() {
    Device device(true);
    Host host(device);
    for (std::uint64_t number = 0; number < kRequests; ++number) {
        host.Send(number);
        Sleep(number % 4);  // from far before to far after a usual answer
        CancelIoEx(host.handle, &host.requests[number].overlapped);
    }
    const bool all = host.CountEnds() == kRequests;
    CloseHandle(host.handle);
    device.Await(kRelayClose);  // the last message
    std::uint64_t answered = 0;
    for (const auto& [number, error] : host.ends) {
        Check(error == 0 || error == ERROR_OPERATION_ABORTED, "a request ends with a wrong error");
        Check(device.held[number] == (error == 0 ? 1 : 0), "host and device process disagree");
        answered += error == 0 ? 1 : 0;
    }
    std::printf("%llu of %llu requests answered\n", answered, kRequests);
    Check(all && answered > 0 && answered < kRequests, "not all ended, or all in one way");
}

// Requests that the driver ends in the host's call. The device process gets them all the same.
void EndAtOnce() {
    Device device(false);
    Host host(device);
    RelayRules rules = {};
    rules.device = kRelayI2c;
    rules.rules[0] = {kRelayWrite, 0, 0, 1, 1, 0};
    rules.rules[1] = {kRelayWrite, 0, 0, 1, 1, simulator::StatusOf(ERROR_IO_DEVICE)};
    Check(device.control.SetRules(rules) == 0, "the driver takes no rules");
    host.Send(0);
    host.Send(1, ERROR_SUCCESS);
    host.Send(2, ERROR_IO_DEVICE);
    Check(host.CountEnds() == 1 && host.ends[1] == 0, "a request did not end at once");
    Check(device.counts[kRelayWrite] == 3, "the device process has not seen all");
    CloseHandle(host.handle);
    Check(host.CountEnds() == 2, "the pending request has not ended");  // before its OVERLAPPED
}

void EndBy(const char* what, DWORD expected, void (*act)(std::unique_ptr<Device>&, Host&)) {
    auto device = std::make_unique<Device>(false);
    Host host(*device);
    host.Send(0);
    device->Await(kRelayWrite);
    act(device, host);
    Check(host.CountEnds() == 1 && host.ends[0] == expected, what);
    CloseHandle(host.handle);
}

}  // namespace

int main() try {
    CancelAgainstAnswers();
    EndAtOnce();
    EndBy("unplugged", ERROR_DEVICE_NOT_CONNECTED, [](auto& device, Host&) {
        device->control.Plug(kRelayI2c, 0);
        Check(Open() == INVALID_HANDLE_VALUE && GetLastError() == ERROR_FILE_NOT_FOUND, "opened");
    });
    EndBy("the device process has gone", ERROR_DEVICE_NOT_CONNECTED,
          [](auto& device, Host&) { device.reset(); });
    // Windows waits for the closing of the handle, and this test fails there.
    EndBy("the driver is stopped", ERROR_DEVICE_NOT_CONNECTED,
          [](auto&, Host&) { simulator::UnloadDriver(L"tagport-relay"); });
    simulator::LoadDriver(L"tagport-relay");
    CancelAgainstAnswers();
} catch (const std::exception& problem) {
    std::printf("FAILED: %s\n", problem.what());
    return 1;
}
