// Commands of a script as calls of the simulated PC.
#include "lab/PcDevices.h"

#include <algorithm>
#include <utility>

#include "lab/BusTrace.h"
#include "lab/Hex.h"
#include "platform/emulation/Kernel.h"

namespace lab {

namespace {

using simulator::Micros;

// The fields of the media-type record's payload, as a phone reads them, with their sizes.
constexpr std::pair<const char*, std::size_t> kPayload[] = {
    {"version", 2}, {"mac", 6}, {"number", 32}, {"model", 4}};
constexpr std::size_t kPayloadSize = 44;

/// What a script says of the Bluetooth client.
LinkDockService::DeliveryHabits HabitsOf(const Fields& fields) {
    LinkDockService::DeliveryHabits habits;
    habits.insideSubscribeMs = static_cast<unsigned>(NumberOf(fields, "inside-subscribe"));
    habits.insideWriteMs = static_cast<unsigned>(NumberOf(fields, "inside-write"));
    habits.threads = std::max(static_cast<unsigned>(NumberOf(fields, "threads")), 1U);
    habits.afterRefusedUnsubscribe = fields.count("after-refusal") > 0;
    return habits;
}

}  // namespace

Json PhoneObject(const simulator::PhoneReport& report) {
    Json object{{"kind", "phone"}, {"read", report.read}};
    if (!report.read) {
        object["problem"] = report.problem;
        return object;
    }
    const simulator::NdefReading& reading = report.reading;
    object["uri"] = reading.uri.value_or("");
    object["type"] = reading.mimeType;
    object["payload"] = ToHex(reading.mimePayload);
    if (reading.mimePayload.size() == kPayloadSize) {
        const std::string_view payload = AsText(reading.mimePayload);
        std::size_t offset = 0;
        for (const auto& [name, size] : kPayload) {
            object[name] = ToHex(payload.substr(offset, size));
            offset += size;
        }
    }
    return object;
}

PcDevices::PcDevices(const PcOptions& options, const PcParts& parts, Recorder& recorder,
                     std::function<double(Micros time)> timeOf)
    : m_parts(parts), m_pc(parts.Routes(), parts.ChipName()) {
    m_reporter = [&recorder, timeOf](const simulator::PhoneReport& report) {
        recorder.AddNamed(kHostThread, timeOf(report.time), PhoneObject(report));
    };
    if (m_pc.bluetooth() != nullptr) {
        const std::shared_ptr<simulator::BluetoothKeyboard> keyboard(std::shared_ptr<void>(),
                                                                     m_pc.bluetooth());
        LinkDockService::SetPeer(TracedPeer(simulator::BlePeerAdapter::Make(keyboard), recorder,
                                            [timeOf] { return timeOf(emulation::Now()); }));
    }
    if (options.fault) {
        m_pc.SetFaults(parts.Faults(*options.fault));
    }
}

void PcDevices::Act(const Command& command) {
    const Micros in = command.in.value_or(0) * emulation::kMillisecond;
    if (command.verb == Verb::kTap) {
        m_pc.TapPhone(m_parts.RouteOf(command), in,
                      command.number.value_or(kDefaultStay) * emulation::kMillisecond, m_reporter);
    } else if (command.verb == Verb::kEnter) {
        m_pc.HoldPhone(in, m_reporter);
    } else if (command.verb == Verb::kLeave) {
        m_pc.TakePhone(in);
    } else if (command.verb == Verb::kSend) {
        m_pc.SendFromKeyboard(m_parts.RouteOf(command), in, AsBytes(command.argument));
    } else if (command.verb == Verb::kChipStatus) {
        emulation::After(in, [this, status = static_cast<std::uint8_t>(*command.number)] {
            m_pc.chip()->BackDoor().RaiseStatus(emulation::Now(), status, 0);
        });
    } else if (command.verb == Verb::kChipBits) {
        const Bytes bits = AsBytes(command.argument);
        const emulation::DeviceLock lock;
        m_pc.chip()->BackDoor().StickBits(bits[0] * 256U + bits[1], bits[2], bits[3]);
    } else if (command.verb == Verb::kBleClient) {
        LinkDockService::SetDeliveryHabits(HabitsOf(command.fields));
    } else if (command.verb == Verb::kUnplug) {
        m_pc.Unplug();
    } else if (command.verb == Verb::kPlug) {
        m_pc.Plug();
    } else if (command.verb == Verb::kFault) {
        m_pc.SetFaults(m_parts.Faults(command.argument));
    }
}

std::string PcDevices::TagMemory() {
    const emulation::DeviceLock lock;
    const Bytes bytes = m_pc.TagMemory();
    return std::string(AsText(bytes));
}

}  // namespace lab
