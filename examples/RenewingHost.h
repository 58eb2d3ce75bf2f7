// A host that keeps the tag right: each Tick gives the tag a new number, and a tag that was pulled
// out, or that lost what was written, is filled again. It neither sleeps nor starts a thread, so
// that its time can be the program's (renewing_host.cpp) or a test's (host_test.cpp).
//
// It renews with WriteMessage and not with WriteRandNum. The result then says whether the number is
// on the tag, and the threads that report phones are started again if they have ended, as they do
// when a driver cancels its requests at a suspend. A phone that lies on the tag meanwhile is
// reported once more.
#pragma once

#include <tagport/NfcManager.h>

#include <algorithm>
#include <array>
#include <memory>
#include <random>

class RenewingHost {
  public:
    using Number = std::array<std::uint8_t, 32>;

    /// `message` has the URL, the PC's MAC address, model and type.
    RenewingHost(std::shared_ptr<NdefMessage> message, NfcListener listener)
        : m_message(std::move(message)), m_listener(listener) {}

    /// To be called about once a minute, and at once when the PC resumes or a device arrives. True
    /// when the tag is well; false when it cannot be reached, and the next Tick tries again.
    bool Tick() {
        std::generate(m_number.begin(), m_number.end(),
                      [this] { return static_cast<std::uint8_t>(m_random()); });
        // The arrays of the interface are built-in ones.
        m_message->SetRandomNumber(reinterpret_cast<const std::uint8_t(&)[32]>(*m_number.data()));
        m_isWell = (m_isWell && Write()) || (Open() && Write());
        return m_isWell;
    }

    /// The number that phones are to find.
    const Number& CurrentNumber() const { return m_number; }

  private:
    bool Open() {
        if (m_manager == nullptr) {
            m_manager = NfcManager::Create(m_message, m_listener);
        }
        if (m_manager == nullptr || !m_manager->DeviceInit()) {
            return false;
        }
        return m_manager->SetMcuKbConnectStatus(true);  // for a HID keyboard; no harm elsewhere
    }

    bool Write() { return m_manager->WriteMessage(m_message) == 0; }

    std::shared_ptr<NdefMessage> m_message;
    NfcListener m_listener;
    std::shared_ptr<NfcManager> m_manager;
    bool m_isWell = false;
    Number m_number{};
    std::random_device m_random;
};
