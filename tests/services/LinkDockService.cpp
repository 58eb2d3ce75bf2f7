// A LinkDockService.dll as another project could make it. It exports what the library calls and
// nothing else. It notifies inside its own calls: of a change of the connection and a phone at a
// subscription, of the number when that is asked for. Two threads of its own notify of further
// phones meanwhile.
#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

namespace LinkDockService {

class BLEClient {
  public:
    class INotification {
      public:
        virtual void StateChanged(int state) = 0;
        virtual void ValueChanged(const std::vector<std::uint8_t>& value) = 0;
        virtual ~INotification() = default;
    };

    __declspec(dllexport) static BLEClient* GetInstance();
    __declspec(dllexport) int BleClientConnect(std::uint64_t address) {
        std::printf("connect %llx\n", static_cast<unsigned long long>(address));
        return 0;
    }
    __declspec(dllexport) int BleClientDisConnect(std::uint64_t address) {
        std::printf("disconnect %llx\n", static_cast<unsigned long long>(address));
        return 0;
    }
    __declspec(dllexport) int BleClientSubscribeNotify(std::uint64_t /*address*/,
                                                       const std::string& service,
                                                       const std::string& /*characteristic*/,
                                                       INotification* sink) {
        std::printf("subscribe %s\n", service.c_str());
        m_sink = sink;
        sink->StateChanged(1);
        const std::vector<std::uint8_t> phone = {0x2E, 0x02, 0x6E, 0xE6};
        sink->ValueChanged(phone);
        for (int thread = 0; thread < 2; ++thread) {
            m_threads.emplace_back([sink, phone] {
                for (int count = 0; count < kPhonesOfEachThread; ++count) {
                    sink->ValueChanged(phone);
                }
            });
        }
        return 0;
    }
    __declspec(dllexport) int BleClientUnsubscribeNotify(std::uint64_t /*address*/,
                                                         const std::string& /*service*/,
                                                         const std::string& characteristic) {
        for (std::thread& thread : m_threads) {
            thread.join();
        }
        m_threads.clear();
        std::printf("unsubscribe %s\n", characteristic.c_str());
        return 0;
    }
    __declspec(dllexport) int BleClientWrite(std::uint64_t /*address*/,
                                             const std::string& /*service*/,
                                             const std::string& /*characteristic*/,
                                             const std::vector<std::uint8_t>& value) {
        std::printf("write %u bytes\n", static_cast<unsigned>(value.size()));
        if (value[1] == 1) {
            std::vector<std::uint8_t> answer(34, 7);
            answer[0] = 0x2E;
            answer[1] = 3;
            m_sink->ValueChanged(answer);
        }
        return 0;
    }

  private:
    static constexpr int kPhonesOfEachThread = 3;
    INotification* m_sink = nullptr;
    std::vector<std::thread> m_threads;
};

// Not in the class: what it has inside would be exported too.
BLEClient* BLEClient::GetInstance() {
    static BLEClient client;
    return &client;
}

}  // namespace LinkDockService
