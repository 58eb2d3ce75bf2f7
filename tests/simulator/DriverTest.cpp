// The devices through the hosted layer, on the scheduled clock: transfers, interrupts, faults.
#include <gtest/gtest.h>

#include "platform/hosted/Kernel.h"
#include "platform/platform.h"
#include "simulator/SimulatedPc.h"
#include "tests/simulator/TagBytes.h"
#include "tests/support/Seeds.h"

namespace simulator {
namespace {

HANDLE OpenPath(const std::wstring& path, DWORD share = 0) {
    return CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, share, nullptr, OPEN_EXISTING,
                       FILE_FLAG_OVERLAPPED, nullptr);
}

// One transfer at a time on a device, waited for at most a second.
class Client {
  public:
    explicit Client(HANDLE device) : m_device(device) {
        overlapped.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    }
    ~Client() {
        CloseHandle(m_device);
        CloseHandle(overlapped.hEvent);
    }

    // The last-error code of the whole transfer; WAIT_TIMEOUT while it is under way.
    DWORD Write(Bytes bytes) {
        m_buffer = std::move(bytes);
        const auto size = static_cast<DWORD>(m_buffer.size());
        return End(WriteFile(m_device, m_buffer.data(), size, &moved, &overlapped));
    }
    DWORD Read(DWORD size) {
        m_buffer.assign(size, 0);
        return End(ReadFile(m_device, m_buffer.data(), size, &moved, &overlapped));
    }
    DWORD Control(DWORD code) {
        return End(DeviceIoControl(m_device, code, nullptr, 0, nullptr, 0, &moved, &overlapped));
    }
    DWORD Cancel() {
        CancelIoEx(m_device, &overlapped);
        return Wait();
    }
    DWORD Wait() {
        if (WaitForSingleObject(overlapped.hEvent, 1000) == WAIT_TIMEOUT) {
            return WAIT_TIMEOUT;
        }
        return GetOverlappedResult(m_device, &overlapped, &moved, FALSE) ? ERROR_SUCCESS
                                                                         : GetLastError();
    }
    HANDLE device() const { return m_device; }
    Bytes got() const { return Bytes(m_buffer.begin(), m_buffer.begin() + moved); }

    OVERLAPPED overlapped{};
    DWORD moved = 0;
    bool pended = false;

  private:
    DWORD End(BOOL started) {
        pended = !started && GetLastError() == ERROR_IO_PENDING;
        return started || pended ? Wait() : GetLastError();
    }

    HANDLE m_device;
    Bytes m_buffer;
};

void UseClock() {
    hosted::ScheduledOptions options;
    options.seed = testing_support::Seed();
    hosted::UseScheduledClock(options);
}

TEST(SpbDriver, CarriesTransfersAndInterrupts) {
    UseClock();
    {
        SimulatedPc pc({PcRoute::kI2c}, "fm11nt082c");
        Client bus(OpenPath(kSpbDriverPath));
        EXPECT_EQ(bus.Control(kControlOpen), ERROR_SUCCESS);
        EXPECT_EQ(bus.Control(0x04001C04), 1U);
        const Bytes image = ImageForTests();
        for (std::size_t at = 0; at < image.size(); at += 16) {
            Bytes frame = {0, static_cast<std::uint8_t>(16 + at)};
            frame.insert(
                frame.end(), image.begin() + static_cast<std::ptrdiff_t>(at),
                image.begin() + static_cast<std::ptrdiff_t>(std::min(at + 16, image.size())));
            EXPECT_EQ(bus.Write(frame), ERROR_SUCCESS);
            EXPECT_EQ(bus.Write({0, 0}), ERROR_IO_DEVICE);  // no pause
            Sleep(10);
        }
        PhoneReport seen;
        pc.TapPhone(kMilli * 50, kMilli * 100, [&](const PhoneReport& report) { seen = report; });
        EXPECT_EQ(bus.Control(kControlInterrupt), ERROR_SUCCESS);  // the phone comes
        EXPECT_TRUE(bus.pended);
        Sleep(150);  // it has read and gone, while nobody waited
        EXPECT_EQ(bus.Control(kControlInterrupt), ERROR_SUCCESS);
        EXPECT_TRUE(bus.pended);
        EXPECT_EQ(bus.Control(kControlInterrupt), WAIT_TIMEOUT);  // one is remembered, no more
        EXPECT_TRUE(seen.read) << seen.problem;
        EXPECT_EQ(seen.reading.message, Bytes(image.begin() + 2, image.end() - 1));
        EXPECT_EQ(pc.spb()->Violations(), 0U);

        OVERLAPPED other{};
        std::uint8_t byte = 0;
        WriteFile(bus.device(), &byte, 1, nullptr, &other);
        EXPECT_EQ(bus.Read(1), ERROR_SUCCESS);
        EXPECT_EQ(pc.spb()->Violations(), 1U);

        pc.Unplug();
        EXPECT_EQ(bus.Read(1), ERROR_DEVICE_NOT_CONNECTED);
        EXPECT_EQ(OpenPath(kSpbDriverPath), INVALID_HANDLE_VALUE);
    }
    EXPECT_EQ(hosted::Live().handles + hosted::Live().requests, 0U);
}

TEST(FaultyDriver, SpoilsExactlyTheRequestsOfItsPlan) {
    UseClock();
    SimulatedPc pc({PcRoute::kI2c}, "fanli");
    std::string error;
    const auto plan = FaultPlan::Parse(
        "open#1=refuse:5, write#2=refuse:31 , read#1=short:2,read#2=late:700,write#3-4=fail:121,"
        "control#1=never, interrupt#2+=gone, any#3=refuse:87",
        error);
    ASSERT_TRUE(plan) << error;
    pc.Faults(*plan);
    EXPECT_EQ(OpenPath(kSpbDriverPath), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    Client bus(OpenPath(kSpbDriverPath));
    EXPECT_EQ(bus.Write({0, 0}), ERROR_SUCCESS);
    EXPECT_EQ(bus.Write({0, 0}), ERROR_GEN_FAILURE);
    EXPECT_FALSE(bus.pended);
    EXPECT_EQ(bus.Write({0, 0}), ERROR_SEM_TIMEOUT);  // its own fault stands before that of any
    EXPECT_TRUE(bus.pended);
    EXPECT_EQ(bus.Write({0, 0}), ERROR_SEM_TIMEOUT);
    EXPECT_EQ(bus.Read(9), ERROR_SUCCESS);
    EXPECT_EQ(bus.got(), Bytes(7, 0xFF));
    const hosted::Micros before = hosted::Now();
    EXPECT_EQ(bus.Read(9), ERROR_SUCCESS);
    EXPECT_EQ(bus.got(), Bytes(9, 0xFF));
    EXPECT_EQ(hosted::Now() - before, 700 * kMilli + kDefaultBusLatency);
    EXPECT_EQ(bus.Control(kControlOpen), WAIT_TIMEOUT);
    EXPECT_EQ(bus.Cancel(), ERROR_OPERATION_ABORTED);
    EXPECT_EQ(bus.Control(kControlInterrupt), WAIT_TIMEOUT);
    EXPECT_EQ(pc.chip()->BackDoor().Counters().writes, 1U);  // the others never reached it
    {
        Client second(OpenPath(kSpbDriverPath));  // share mode 0: refused, and no open for the plan
        EXPECT_EQ(second.Control(kControlInterrupt), ERROR_INVALID_HANDLE);
    }
    OVERLAPPED gone{};
    EXPECT_FALSE(
        DeviceIoControl(bus.device(), kControlInterrupt, nullptr, 0, nullptr, 0, nullptr, &gone));
    EXPECT_EQ(GetLastError(), ERROR_DEVICE_NOT_CONNECTED);
    EXPECT_EQ(bus.Wait(), ERROR_DEVICE_NOT_CONNECTED);  // the wait that was pending
    EXPECT_EQ(bus.Write({0, 0}), ERROR_DEVICE_NOT_CONNECTED);
    EXPECT_EQ(pc.spb()->WaitsPending(), 0U);  // the device behind was told
    pc.Faults({});
    EXPECT_EQ(bus.Write({0, 0}), ERROR_SUCCESS);
}

TEST(FaultPlan, SaysWhatIsWrongWithAText) {
    const struct {
        const char* text;
        const char* error;
    } cases[] = {{"write#1=never,,read#1=gone", "fault 2, \"\": it doesn't have the form"},
                 {"wirte#1=never", "\"wirte\" is no kind of request"},
                 {"write#0=never", "\"0\" behind \"#\""},
                 {"write#3-2=never", "\"3-2\" behind \"#\""},
                 {"write#1x=never", "\"1x\" behind \"#\""},
                 {"write#4294967296=never", "behind \"#\""},
                 {"write#1=newer", "\"newer\" is no action"},
                 {"write#1=never:3", "\"never\" takes no value"},
                 {"write#1=short", "\"short\" needs a number of bytes"},
                 {"write#1=refuse:x", "\"refuse\" needs a last-error code"},
                 {"open#1=late:5", "an opening can only"}};
    for (const auto& one : cases) {
        std::string error;
        EXPECT_FALSE(FaultPlan::Parse(one.text, error)) << one.text;
        EXPECT_NE(error.find(one.error), std::string::npos) << error;
    }
}

TEST(HidDriver, CarriesReportsBothWays) {
    UseClock();
    SimulatedPc pc({PcRoute::kHid});
    pc.keyboard()->SetMemory(73, Bytes(kNumberSize, 0x5A));
    Client keys(OpenPath(KeyboardInterface().path, FILE_SHARE_READ | FILE_SHARE_WRITE));
    Bytes request = {kReportId, 1, 1, 8, kFrameMark, kFrameRequest, 73, 0};
    EXPECT_EQ(keys.Write(request), ERROR_INVALID_PARAMETER);
    request.resize(kReportSize);
    EXPECT_EQ(keys.Write(request), ERROR_SUCCESS);
    const hosted::Micros asked = hosted::Now();
    EXPECT_EQ(keys.Read(kReportSize), ERROR_SUCCESS);
    EXPECT_TRUE(keys.pended);
    EXPECT_EQ(hosted::Now() - asked, kDefaultAnswerLatency);
    EXPECT_EQ(keys.got().at(6), 0x5A);
    pc.TapPhone(0, kMilli * 500);
    Sleep(1000);
    EXPECT_EQ(keys.Read(kReportSize), ERROR_SUCCESS);  // queued
    EXPECT_FALSE(keys.pended);
    EXPECT_EQ(keys.got().at(6), kFieldEnter[0]);
    EXPECT_EQ(keys.Read(kReportSize), ERROR_SUCCESS);
    EXPECT_EQ(keys.got().at(6), kFieldLeave[0]);
    EXPECT_EQ(keys.Control(kControlInterrupt), 1U);  // refused at once
}

}  // namespace
}  // namespace simulator
