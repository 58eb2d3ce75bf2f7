// Renews the random number: in memory at once, on the tag by a thread of its own.
#include <tagport/NfcManager.h>

#include <algorithm>
#include <exception>
#include <iterator>
#include <memory>
#include <type_traits>

#include "diagnostics/Log.h"
#include "manager/Limits.h"
#include "manager/ManagedImage.h"
#include "manager/ManagerLocks.h"
#include "manager/TagSteps.h"
#include "platform/BoundedMemory.h"
#include "platform/platform.h"
#include "routes/NfcProxy.h"
#include "routes/RouteTable.h"
#include "tagimage/NfcData.h"
#include "transfer/WaitForCommand.h"

namespace {

static_assert(std::is_same_v<decltype(&NfcManager::WriteRandThread), LPTHREAD_START_ROUTINE>,
              "a host may hand it to CreateThread as it is");

constexpr NfcManager::ThreadResult kThreadFailure = 0xFFFFFFFF;

// What the number thread works on. It may outlive the host's last pointer to the manager and the
// host's own module: it shares the image, works through a detached proxy, and keeps the transfer
// event open, so that the end of the manager does not cut an image in half. It has no share in the
// message, whose deleter may lie in the host's module.
struct NumberThread {
    NfcManager manager{nullptr};
    EventSlot::KeepOpen transferEvent{g_ioEvent.value};
    PendingNumber number;
};

DWORD WINAPI RunNumberThread(LPVOID argument) {
    const std::unique_ptr<NumberThread> thread(static_cast<NumberThread*>(argument));
    try {
        return NfcManager::WriteRandThread(&thread->manager);
    } catch (const std::exception&) {
        LogErrorFun("LocalWriteRand failed");  // no caller on this thread could catch it
        return kThreadFailure;
    }
}

// A working chip returns something other than zero at one of these places. The read-back of a
// whole message checks one place more.
bool LooksWritten(const RandomNumber& number) {
    return (number[0] | number[1] | number[kNumberSize - 1]) != 0;
}

}  // namespace

int NfcManager::WriteRandNum(const std::uint8_t (&number)[32]) {
    RandomNumber given{};
    const bool isArray =
        platform::memcpy_s(given.data(), given.size(), number, sizeof(number)) == 0;
    // All that can run out of memory comes first: no number may stay that nobody writes.
    auto thread = std::make_unique<NumberThread>();
    thread->manager.m_nfcProxy = NfcProxy::Detached();
    platform::KeepLoaded();
    NfcData refusing;
    HANDLE handle = nullptr;
    DWORD error = ERROR_SUCCESS;

    enum class Outcome { kNoMessage, kKnown, kRefused, kNoThread, kStarted };
    const auto takeOver = [&] {
        platform::Lock memory(ManagedImage::m_memoryMutex);
        if (m_ndefMessage == nullptr) {
            return Outcome::kNoMessage;
        }
        std::uint8_t current[kNumberSize] = {};
        m_ndefMessage->GetRandomNumber(current);
        if (isArray && std::equal(given.begin(), given.end(), current)) {
            if (m_nfcData != nullptr) {
                m_nfcData->SetGiven(given);
                if (m_nfcData->HasPendingNumber()) {
                    m_nfcData->MakeNewest();  // its thread is to write all the same
                }
            }
            return Outcome::kKnown;
        }
        std::copy(given.begin(), given.end(), current);
        if (!isArray || m_nfcData == nullptr || !m_nfcData->data.FitsOnTag()) {
            m_ndefMessage->SetRandomNumber(current);
            if (isArray && m_nfcData != nullptr) {
                m_nfcData->data.ReplaceNumber(given);
                refusing = m_nfcData->data;
            }
            return Outcome::kRefused;
        }
        thread->manager.m_nfcData = m_nfcData;
        // Started under the lock, so that nobody sees a number which no thread writes.
        handle = CreateThread(nullptr, 0, RunNumberThread, thread.get(), 0, nullptr);
        if (handle == nullptr) {
            error = GetLastError();
            return Outcome::kNoThread;
        }
        m_ndefMessage->SetRandomNumber(current);
        m_nfcData->data.ReplaceNumber(given);
        m_nfcData->SetGiven(given);
        m_nfcData->MakeNewest();
        thread->number.Begin(m_nfcData);
        static_cast<void>(thread.release());  // the thread owns it now
        return Outcome::kStarted;
    };

    switch (takeOver()) {
        case Outcome::kNoMessage:
            LogErrorFun("WriteRandNum GetRandomNumber fail");
            return kFailure;
        case Outcome::kKnown:
            LogWarnFun("WriteRandNum no need to update");
            return kSuccess;
        case Outcome::kRefused:
            if (isArray) {
                SetRandomNumber(refusing, number);  // logs the reason
            } else {
                LogErrorFun("SetRandomNumber memcpy_s fail");
            }
            LogErrorFun("SetRandomNumber fail");
            return kFailure;
        case Outcome::kNoThread:
            LogErrorFun("WriteRandNum CreateThread failed - %u", static_cast<unsigned>(error));
            return kFailure;
        case Outcome::kStarted:
            break;
    }
    CloseHandle(handle);
    LogWarnFun("NFC_WriteRandNum done");
    return kSuccess;
}

NfcManager::ThreadResult NfcManager::WriteRandThread(void* manager) {
    if (manager == nullptr) {
        LogErrorFun("WriteRandThread nullptr");
        return kThreadFailure;
    }
    if (static_cast<NfcManager*>(manager)->LocalWriteRand() != kSuccess) {
        LogErrorFun("LocalWriteRand failed");
        return kThreadFailure;
    }
    return 0;
}

int NfcManager::LocalWriteRand() {
    const OperationScope scope;
    platform::Lock operation(NumberThreadMutex());
    const NfcManager held(*this);
    const ManagedImage* const image = held.m_nfcData.get();
    if (held.m_nfcProxy == nullptr || image == nullptr) {
        LogErrorFun("LocalWriteRand m_nfcProxy is nullptr");
        return kFailure;
    }
    NumberWrite write = NumberWrite::kFailed;
    TryThrice([&] {
        write = WriteImageUnlessOutdated(*image);
        return write != NumberWrite::kFailed;
    });
    if (write == NumberWrite::kFailed) {
        LogErrorFun("LocalWriteRand WriteNfcContent failed");
        return kFailure;
    }
    if (write == NumberWrite::kOutdated) {
        LogWarnFun("LocalWriteRand leaves the tag alone: another manager has written since");
        return kSuccess;
    }
    LogWarnFun("LocalWriteRand WriteNfcContent Write Chip Successful");
    RandomNumber number{};
    const auto readBack = [&] {
        for (int count = 0; count < kTagAttempts; ++count) {
            LogWarnFun("LocalWriteRand begin ReadRandNum");
            if (!ReadNumber(number.data())) {
                LogErrorFun("ReadRandNum ReadNfc failed");
                LogErrorFun("ReadRandNum failed %d", count);
            } else if (LooksWritten(number)) {
                return true;
            }
        }
        return false;
    };
    if (!readBack()) {
        LogErrorFun("LocalWriteRand ReadRandNum failed");
        return kFailure;
    }
    LogWarnFun("LocalWriteRand ReadRandNum Successful");
    if (Proxy() == nullptr) {
        LogErrorFun("m_nfcProxy SetLocalNum failed");
        return kFailure;
    }
    NfcProxy::SetLocalNum(number.data());
    return kSuccess;
}

int NfcManager::ReadRandNum(std::uint8_t (&number)[32]) {
    const OperationScope scope;
    const std::shared_ptr<NfcProxy> proxy = Proxy();
    RandomNumber probe{};
    if (platform::memcpy_s(probe.data(), probe.size(), number, sizeof(number)) != 0) {
        LogErrorFun("NFC ReadRandNumber memcpy_s fail");
        LogErrorFun("ReadRandNum ReadNfc failed");
        return kFailure;
    }
    if (proxy == nullptr || !ReadNumber(number)) {
        LogErrorFun("ReadRandNum ReadNfc failed");
        return kFailure;
    }
    return kSuccess;
}
