// A host that keeps the tag right: each Tick gives the tag a new number, and a tag that was pulled
// out, or that lost what was written, is filled again. It neither sleeps nor starts a thread, so
// that its time can be the program's (renewing_host.cpp) or a test's (host_test.cpp).
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

    /// To be called about once a minute. True when the tag is well; false when it cannot be
    /// reached, and the next Tick tries again.
    bool Tick() {
        if (!Well() && !Fill()) {
            return false;
        }
        const Number next = NewNumber();
        if (m_manager->WriteRandNum(AsArray(next)) != 0) {
            return false;
        }
        m_number = next;  // a thread of the library writes it; the next Tick looks whether it did
        return true;
    }

    /// The number that phones are to find.
    const Number& CurrentNumber() const { return m_number; }

  private:
    // The arrays of the interface are built-in ones.
    static auto AsArray(const Number& number) -> const std::uint8_t (&)[32] {
        return reinterpret_cast<const std::uint8_t(&)[32]>(number);
    }

    Number NewNumber() {
        Number number;
        std::generate(number.begin(), number.end(),
                      [&] { return static_cast<std::uint8_t>(m_random()); });
        return number;
    }

    // Whether the tag has the last number. A failed renewal shows nowhere else.
    bool Well() {
        std::uint8_t onTag[32] = {};
        return m_manager != nullptr && m_manager->ReadRandNum(onTag) == 0 &&
               std::equal(m_number.begin(), m_number.end(), onTag);
    }

    bool Fill() {
        m_number = NewNumber();
        m_message->SetRandomNumber(AsArray(m_number));
        if (m_manager == nullptr) {
            m_manager = NfcManager::Create(m_message, m_listener);
        }
        if (m_manager == nullptr || !m_manager->DeviceInit()) {
            return false;
        }
        m_manager->SetMcuKbConnectStatus(true);
        return m_manager->WriteMessage(m_message) == 0;
    }

    std::shared_ptr<NdefMessage> m_message;
    NfcListener m_listener;
    std::shared_ptr<NfcManager> m_manager;
    Number m_number{};
    std::random_device m_random;
};
