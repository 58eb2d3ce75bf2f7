#include "lab/ImageCommand.h"

#include <tagport/NdefMessage.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "lab/ConfigCheck.h"
#include "lab/Failure.h"
#include "lab/Hex.h"
#include "lab/ImageNotes.h"
#include "lab/ImageTable.h"
#include "lab/Recorder.h"
#include "lab/Terminal.h"
#include "platform/TraceLog.h"
#include "tagimage/NfcData.h"

namespace lab {

namespace {

using imageformat::kMacSize;
using imageformat::kModelSize;
using imageformat::kNumberSize;

constexpr std::size_t kMaxUrl = 162;          // what an image holds
constexpr std::size_t kInputLimit = 1 << 20;  // far above any image, as text or as bytes
constexpr std::size_t kBytesInLine = 16;

void KeepLine(int level, const std::wstring& line, void* context) {
    static_cast<std::vector<std::string>*>(context)->push_back(
        (level >= LOG_MESSAGE_LEVEL_ERROR ? "error  " : "warn   ") + Narrow(line));
}

template <std::size_t Size>
void Set(bool (NfcData::*setter)(const std::uint8_t (&)[Size]), NfcData& data,
         const std::string& bytes) {
    std::uint8_t field[Size];
    std::memcpy(field, bytes.data(), Size);
    (data.*setter)(field);
}

struct Fields {
    std::string url;
    std::string mac = std::string(kMacSize, '\0');
    std::string number = std::string(kNumberSize, '\0');
    std::string model = std::string(kModelSize, '\0');
};

/// False, with a line on standard error, when the configuration gives no message.
bool FillFromConfig(const ImageBuildOptions& options, Fields& fields) {
    const ConfigReport report = CheckConfig(options.configDirectory, *options.pcType);
    UseConfigDirectory(options.configDirectory);
    if (report.error) {
        std::fprintf(stderr, "tagport-lab: %s\n", report.error->c_str());
        return false;
    }
    if (report.warning) {
        std::fprintf(stderr, "tagport-lab: warning: %s\n", report.warning->c_str());
    }
    NdefMessage message;
    message.Init(static_cast<char>('0' + *options.pcType));
    std::uint8_t type = 0;
    message.GetPcType(type);
    if (type != *options.pcType) {
        std::fprintf(stderr, "tagport-lab: the library could not fill a message for PC type %d\n",
                     *options.pcType);
        return false;
    }
    std::uint8_t model[kModelSize] = {};
    message.GetModel(model);
    message.GetUrl(fields.url);
    fields.model.assign(model, model + kModelSize);
    return true;
}

std::string HexLines(const std::string& image) {
    std::string text;
    for (std::size_t at = 0; at < image.size(); at += kBytesInLine) {
        text += ToHex(std::string_view(image).substr(at, kBytesInLine), true) + "\n";
    }
    return text;
}

/// Text throughout: hexadecimal. Anything else: the bytes themselves.
bool LooksLikeText(std::string_view bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](char character) {
        const auto byte = static_cast<unsigned char>(character);
        return (byte >= 0x20 && byte < 0x7F) || byte == '\n' || byte == '\r' || byte == '\t';
    });
}

}  // namespace

LibraryVerdict AskLibrary(std::string_view image) {
    LibraryVerdict verdict;
    NfcData data;
    data.Init();
    TraceLogger::SetSink(KeepLine, &verdict.log);
    verdict.accepted = data.Parse(image);
    TraceLogger::SetSink(nullptr, nullptr);
    return verdict;
}

int BuildImage(const ImageBuildOptions& options) {
    Fields fields;
    if (options.pcType && !FillFromConfig(options, fields)) {
        return kExitFailed;
    }
    fields.url = options.url.value_or(fields.url);
    if (fields.url.size() > kMaxUrl) {
        throw WrongCall("--url: " + std::to_string(fields.url.size()) + " bytes: at most " +
                        std::to_string(kMaxUrl) + " fit");
    }
    const auto take = [](const std::optional<std::string>& option, const char* name,
                         std::string& field) {
        if (option) {
            field = HexValue(*option, field.size(), name);
        }
    };
    take(options.mac, "--mac", fields.mac);
    take(options.number, "--number", fields.number);
    take(options.model, "--model", fields.model);

    NfcData data;
    data.Init();
    data.InitValue();
    if (!data.SetUrl(fields.url)) {
        std::fprintf(stderr, "tagport-lab: the library refuses this URL\n");
        return kExitFailed;
    }
    Set(&NfcData::SetMacAddr, data, fields.mac);
    Set(&NfcData::SetRandomNumber, data, fields.number);
    Set(&NfcData::SetModel, data, fields.model);
    const std::string image = data.GetContent();
    WriteWhole(options.output, options.format == "raw" ? image : HexLines(image));
    return kExitDone;
}

int ShowImage(const ImageShowOptions& options) {
    const std::string input = ReadWhole(options.file, kInputLimit);
    const bool hex = options.format == "hex" || (options.format == "auto" && LooksLikeText(input));
    const std::string image =
        hex ? FromHex(input, options.file == "-" ? "standard input" : options.file) : input;

    const Style style = Style::ForOutput();
    const ImageNotes notes = AnnotateImage(image);
    const LibraryVerdict verdict = AskLibrary(image);
    std::string text = ImageTable(image, notes, style) + "\n";
    if (notes.fault) {
        text += style.Red("refused") + ": offset " + std::to_string(notes.fault->offset) + ": " +
                notes.fault->check + "\n";
    } else {
        text += style.Green("accepted") + ": " + std::to_string(image.size()) + " bytes\n";
    }
    for (const std::string& remark : notes.remarks) {
        text += "  taken all the same: " + remark + "\n";
    }
    text += std::string("the library ") + (verdict.accepted ? "takes" : "refuses") + " it:\n";
    for (const std::string& line : verdict.log) {
        text += "  " + style.Dim(line) + "\n";
    }
    WriteWhole("-", text);
    if (verdict.accepted == notes.fault.has_value()) {
        std::fprintf(stderr, "tagport-lab: %s: the two verdicts differ: one of them is wrong\n",
                     options.file.c_str());
        return kExitFailed;
    }
    return verdict.accepted ? kExitDone : kExitFailed;
}

}  // namespace lab
