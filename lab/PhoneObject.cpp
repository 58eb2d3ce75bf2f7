// The fields of a phone's report.
#include "lab/PhoneObject.h"

#include <array>

#include "lab/Hex.h"

namespace lab {

namespace {

// The fields of the media-type record's payload, as a phone reads them.
struct PayloadField {
    const char* name;
    std::size_t size;
};
constexpr std::array<PayloadField, 4> kPayload{
    {{"version", 2}, {"mac", 6}, {"number", 32}, {"model", 4}}};
constexpr std::size_t kPayloadSize = 44;

}  // namespace

Json PhoneObject(const simulator::PhoneReport& report) {
    Json object;
    object["kind"] = "phone";
    object["read"] = report.read;
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
        for (const PayloadField& field : kPayload) {
            object[field.name] = ToHex(payload.substr(offset, field.size));
            offset += field.size;
        }
    }
    return object;
}

}  // namespace lab
