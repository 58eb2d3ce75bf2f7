#include "lab/explain/Advice.h"

#include <algorithm>

namespace lab::explain {

namespace {

// The code alone says what has happened to the device.
bool IsDecisive(const Step& step) {
    return step.meaning->isDevice && step.code && !Meanings::Get().CodeRemedy(*step.code).empty();
}

bool IsRoot(const Step& step) {
    return step.meaning->role == Role::kRoot || step.meaning->role == Role::kChipSilent;
}

}  // namespace

const Step* CauseOf(const std::vector<Step>& chain) {
    for (const auto& condition : {IsDecisive, IsRoot}) {
        const auto found = std::find_if(chain.begin(), chain.end(), condition);
        if (found != chain.end()) {
            return &*found;
        }
    }
    return chain.empty() ? nullptr : &chain.front();
}

std::string Explained(const Step& step) {
    std::string text = step.meaning->Text(step.code);
    if (step.code && *step.code != 0) {
        const std::string_view code = Meanings::Get().CodeText(*step.code);
        text += " Code " + std::to_string(*step.code);
        text += code.empty() ? "." : ": " + std::string(code) + ".";
    }
    return text;
}

std::string_view RemedyOf(const Step& step) {
    return IsDecisive(step) ? Meanings::Get().CodeRemedy(*step.code)
                            : std::string_view(step.meaning->remedy);
}

std::string AdviceFor(std::string_view route, std::string_view advice) {
    const bool isChip = route == "I2C";
    const bool isKeyboard = !isChip && !route.empty();
    std::string text;
    bool isLeftOut = false;
    for (const char c : advice) {
        if (c == '[' || c == '{') {
            isLeftOut = c == '[' ? isChip : isKeyboard;
        } else if (c == ']' || c == '}') {
            isLeftOut = false;
        } else if (!isLeftOut && (c != ' ' || (!text.empty() && text.back() != ' '))) {
            text += c;
        }
    }
    return text;
}

}  // namespace lab::explain
