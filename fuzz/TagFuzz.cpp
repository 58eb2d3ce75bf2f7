// Any bytes in the memory of the tag, which a phone or another program has left there, read by a
// host: refused, or taken with the fields that the image has.
#include <algorithm>

#include "fuzz/Host.h"
#include "tagimage/ImageGeometry.h"
#include "tagimage/NfcData.h"

namespace {

constexpr std::size_t kMemory = 272;  // up to 256 bytes of it are read

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static const auto setup = fuzz::MakeDesk({simulator::PcRoute::kI2c});
    std::vector<std::uint8_t> memory(bytes, bytes + std::min(size, kMemory));
    memory.resize(kMemory);
    setup->pc.chip()->BackDoor().SetMemory(simulator::kFirstImageRegister, memory);
    NfcData data;
    const bool good = data.Init() && data.Parse(AsText(memory.data(), memory[1] + std::size_t{3}));
    const auto message = std::make_shared<NdefMessage>();
    std::string before;
    std::string url;
    message->GetUrl(before);
    const bool taken = setup->manager->ReadMessage(message) == 0;
    fuzz::TakeEvents(*setup);
    message->GetUrl(url);
    if (taken) {
        Check(good && url == data.GetUrl(), "only a good image is taken, with its URL");
        std::uint8_t mac[6], number[32], model[4];
        message->GetMac(mac);
        message->GetRandomNumber(number);
        message->GetModel(model);
        Check(AsText(mac, 6) + AsText(number, 32) + AsText(model, 4) ==
                  data.GetMacAddr() + data.GetRandomNumber() + data.GetModel(),
              "the fields that were read are the image's");
    } else if (good) {
        Check(data.GetUrl().size() > imageformat::kMaxUriSize || data.GetUrl().empty(),
              "a good image is taken if the message can hold its URL");
    } else {
        Check(url == before, "an image that is refused changes nothing");
    }
    return 0;
}
