// Renewing the random number: memory at once, the tag on a thread of its own.
#include <tagport/NfcManager.h>

#include <algorithm>
#include <exception>
#include <memory>

#include "diagnostics/Log.h"
#include "manager/ManagerLocks.h"
#include "manager/NumberWatch.h"
#include "manager/Results.h"
#include "manager/TagAccess.h"
#include "platform/BoundedMemory.h"
#include "platform/platform.h"
#include "routes/NfcProxy.h"
#include "routes/Route.h"
#include "tagimage/NfcData.h"
#include "transfer/TransferState.h"

namespace {

constexpr std::uint32_t kThreadFailure = 0xFFFFFFFF;

// What the number thread works on. It may outlive the host's last pointer to the manager, so it
// holds image and message itself, works through a detached proxy, and keeps the transfer event
// open: the end of the manager must not cut an image in half.
struct NumberThread {
    NfcManager manager{nullptr};
    EventSlot::Keep transferEvent{g_ioEvent.value};
    NumberWatch watch;  // its number is given and not on the tag yet
};

DWORD WINAPI RunNumberThread(LPVOID argument) {
    const std::unique_ptr<NumberThread> thread(static_cast<NumberThread*>(argument));
    try {
        return NfcManager::WriteRandThread(&thread->manager);
    } catch (const std::exception&) {
        LogErrorFun("LocalWriteRand failed");  // nobody is there to catch it on this thread
        return kThreadFailure;
    }
}

// A chip that answers, answers with something other than zero at one of these places. A whole
// message's read-back looks at one place more.
bool LooksWritten(const RandomNumber& number) {
    return (number[0] | number[1] | number[kNumberSize - 1]) != 0;
}

}  // namespace

int NfcManager::WriteRandNum(const std::uint8_t (&number)[32]) {
    RandomNumber given{};
    const bool isArray =
        platform::memcpy_s(given.data(), given.size(), number, sizeof(number)) == 0;
    // Made first: running out of memory must not leave a number that nobody writes.
    auto thread = std::make_unique<NumberThread>();
    {
        platform::Lock memory(g_memoryMutex);
        if (m_ndefMessage == nullptr) {
            LogErrorFun("WriteRandNum GetRandomNumber fail");
            return kFailure;
        }
        std::uint8_t current[kNumberSize] = {};
        m_ndefMessage->GetRandomNumber(current);
        if (isArray && std::equal(given.begin(), given.end(), std::begin(current))) {
            // A write that is under way may be about to put its own number over this one.
            NumberWatch::Announce(m_nfcData.get(), given);
            LogWarnFun("WriteRandNum no need to update");
            return kSuccess;
        }
        if (m_ndefMessage->SetRandomNumber(number) != kSuccess || !SetRandomNumber(number)) {
            LogErrorFun("SetRandomNumber fail");
            return kFailure;
        }
        thread->manager.m_nfcData = m_nfcData;
        thread->manager.m_ndefMessage = m_ndefMessage;
        thread->watch.Begin(m_nfcData.get());
        NumberWatch::Announce(m_nfcData.get(), given);
    }
    thread->manager.m_nfcProxy = NfcProxy::Detached();
    platform::KeepLoaded();
    const HANDLE handle = CreateThread(nullptr, 0, RunNumberThread, thread.get(), 0, nullptr);
    if (handle != nullptr) {
        static_cast<void>(thread.release());  // the thread owns it now
        CloseHandle(handle);
    }
    LogWarnFun("NFC_WriteRandNum done");
    return kSuccess;
}

std::uint32_t NfcManager::WriteRandThread(void* manager) {
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
    platform::Lock operation(g_writeMutex);
    const std::shared_ptr<NfcData> data = Data();
    const std::shared_ptr<NfcProxy> proxy = Proxy();
    if (proxy == nullptr || data == nullptr) {
        LogErrorFun("LocalWriteRand m_nfcProxy is nullptr");
        return kFailure;
    }
    if (!TryThrice([&] { return WriteImage(*proxy, *data); })) {
        LogErrorFun("LocalWriteRand WriteNfcContent failed");
        return kFailure;
    }
    LogWarnFun("LocalWriteRand WriteNfcContent Write Chip Successful");
    RandomNumber number{};
    const auto readBack = [&] {
        for (int count = 0; count < kTagAttempts; ++count) {
            LogWarnFun("LocalWriteRand begin ReadRandNum");
            if (!ReadNumber(*proxy, number.data())) {
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
    proxy->SetLocalNum(number.data());
    return kSuccess;
}

int NfcManager::ReadRandNum(std::uint8_t (&number)[32]) {
    const OperationScope scope;
    const std::shared_ptr<NfcProxy> proxy = Proxy();
    if (proxy == nullptr || !ReadNumber(*proxy, number)) {
        LogErrorFun("ReadRandNum ReadNfc failed");
        return kFailure;
    }
    return kSuccess;
}
