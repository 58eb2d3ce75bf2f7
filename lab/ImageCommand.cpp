// Builds images with the library's codec and compares the lab's reader with the library's.
#include "lab/ImageCommand.h"

#include <tagport/NdefMessage.h>

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "lab/ConfigCheck.h"
#include "lab/Failure.h"
#include "lab/Files.h"
#include "lab/Hex.h"
#include "lab/ImageNotes.h"
#include "lab/Recorder.h"
#include "lab/System.h"
#include "lab/Terminal.h"
#include "lab/Words.h"
#include "tagimage/NfcData.h"

namespace lab {

namespace {

using imageformat::kModelSize;

constexpr std::size_t kBytesInLine = 16;

void KeepLine(int level, const std::wstring& line, void* context) {
    static_cast<std::vector<std::string>*>(context)->push_back(
        (level >= LOG_MESSAGE_LEVEL_ERROR ? "error  " : "warn   ") + Narrow(line));
}

/// URL and model of a PC type.
std::pair<std::string, std::string> Configured(const std::string& directory, int pcType) {
    UseConfiguration(directory, pcType);
    NdefMessage message;
    message.Init(static_cast<char>('0' + pcType));
    std::uint8_t type = 0;
    message.GetPcType(type);
    FailIf(type != pcType,
           "the library could not fill a message for PC type " + std::to_string(pcType));
    std::string url;
    std::uint8_t model[kModelSize] = {};
    message.GetUrl(url);
    message.GetModel(model);
    return {url, std::string(AsText(model))};
}

std::string HexLines(const std::string& image) {
    std::string text;
    for (std::size_t at = 0; at < image.size(); at += kBytesInLine) {
        text += ToHex(std::string_view(image).substr(at, kBytesInLine), true) + "\n";
    }
    return text;
}

/// The absolute path: the configuration's directory may become the current one.
std::filesystem::path OutputPath(const std::string& name) {
    RefuseIf(name.empty(), "-o \"\": a file name is needed");
    std::error_code error;
    std::filesystem::path path = std::filesystem::absolute(name, error);
    RefuseIf(error.value() != 0, "-o " + name + ": cannot be written: " + error.message());
    return path;
}

/// A file of printable ASCII is read as hexadecimal text; any other file is the image itself.
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
    SetLogSink(KeepLine, &verdict.log);
    verdict.accepted = data.Parse(image);
    SetLogSink(nullptr, nullptr);
    return verdict;
}

int BuildImage(const ImageBuildOptions& options) {
    const std::filesystem::path output = OutputPath(options.output);
    const auto [url, model] = options.pcType
                                  ? Configured(options.configDirectory, *options.pcType)
                                  : std::pair(options.url, std::string(kModelSize, '\0'));
    RefuseIf(url.size() > imageformat::kMaxUriSize,
             "--url: " + std::to_string(url.size()) + " bytes: at most " +
                 std::to_string(imageformat::kMaxUriSize) + " fit");
    NfcData data;
    data.Init();
    data.InitValue();
    FailIf(!data.SetUrl(url), "--url " + url + ": the library refuses this URL");
    SetBytes(data, &NfcData::SetMacAddr, options.mac);
    SetBytes(data, &NfcData::SetRandomNumber, options.number);
    SetBytes(data, &NfcData::SetModel, options.model.value_or(model));
    const std::string image = data.GetContent();
    const std::string bytes = options.format == "raw" ? image : HexLines(image);
    if (options.output == "-") {
        WriteOutput(bytes);
    } else {
        WriteFile("-o " + options.output, output, bytes);
    }
    return kExitDone;
}

int ShowImage(const ImageShowOptions& options) {
    const std::string input = ReadInput("", options.file);
    const std::string_view digits = WithoutByteOrderMark(input);
    const bool hex = options.format == "hex" || (options.format == "auto" && LooksLikeText(digits));
    const std::string image =
        hex ? FromHex(digits, options.file == "-" ? kStandardInput : options.file) : input;

    const Style style = Style::ForOutput();
    const ImageNotes notes = AnnotateImage(image);
    const LibraryVerdict verdict = AskLibrary(image);
    std::string text = ImageTable(image, notes, style) + "\n";
    if (notes.fault) {
        text += style.Red("refused") + ": " + notes.fault->Text() + "\n";
    } else {
        text += style.Green("accepted") + ": " + std::to_string(image.size()) + " bytes\n";
    }
    for (const std::string& remark : notes.remarks) {
        text += "  accepted, but unusual: " + remark + "\n";
    }
    text += std::string("the library ") + (verdict.accepted ? "accepts" : "refuses") + " it:\n";
    for (const std::string& line : verdict.log) {
        text += "  " + style.Dim(Printable(line)) + "\n";
    }
    WriteOutput(text);
    if (verdict.accepted == notes.fault.has_value()) {
        PrintError(options.file + ": the two readers disagree: one of them is wrong");
        return kExitFailed;
    }
    return verdict.accepted ? kExitDone : kExitFailed;
}

}  // namespace lab
