// Any bytes in the memory of the tag, which a phone or another program has left there, read by a
// host: refused, or taken with the fields that the image has.
#include <algorithm>

#include "fuzz/Check.h"
#include "fuzz/Host.h"
#include "tagimage/NfcData.h"

namespace {

constexpr unsigned kImageRegister = 0x10;
constexpr std::size_t kMemory = 272;        // what stands there is read up to 256 bytes
constexpr std::size_t kMostThatFits = 162;  // URI text

struct Pc {
    Pc() { desk.Start(); }

    void Put(std::vector<std::uint8_t> memory) {
        memory.resize(kMemory);
        const hosted::DeviceLock lock;
        desk.pc.chip()->BackDoor().SetMemory(kImageRegister, memory);
    }

    const bool clock = fuzz::StartClock();
    fuzz::Desk desk{{simulator::PcRoute::kI2c}};
};

template <std::size_t Size>
void SameField(NdefMessage& message, int (NdefMessage::*get)(std::uint8_t (&)[Size]),
               const std::string& field) {
    std::uint8_t bytes[Size] = {};
    (message.*get)(bytes);
    Check(AsText(bytes, Size) == field, "a field that was read is the image's");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static Pc pc;
    std::vector<std::uint8_t> memory(bytes, bytes + std::min(size, kMemory));
    pc.Put(memory);
    memory.resize(kMemory);
    NfcData data;
    Check(data.Init(), "the parts are made");
    const bool good = data.Parse(AsText(memory.data(), memory[1] + std::size_t{3}));
    const auto message = std::make_shared<NdefMessage>();
    std::string before;
    message->GetUrl(before);
    const bool taken = pc.desk.manager->ReadMessage(message) == 0;
    fuzz::TakeEvents(pc.desk);
    Check(taken ? good : !good || data.GetUrl().size() > kMostThatFits || data.GetUrl().empty(),
          "what is a good image is taken, and nothing else");
    std::string url;
    message->GetUrl(url);
    if (taken) {
        Check(url == data.GetUrl(), "the URL that was read is the image's");
        SameField(*message, &NdefMessage::GetMac, data.GetMacAddr());
        SameField(*message, &NdefMessage::GetRandomNumber, data.GetRandomNumber());
        SameField(*message, &NdefMessage::GetModel, data.GetModel());
    } else if (!good) {
        Check(url == before, "an image that is refused changes nothing");
    }
    return 0;
}
