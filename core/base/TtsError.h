// The one error type of the service: a code, and a message already in the interface language.
//
// Operations of the service throw it; anything else that reaches the outermost layer is an internal
// fault. A value; any thread.
#pragma once

#include <exception>
#include <string>
#include <string_view>
#include <utility>

namespace zepho {

enum class TtsErrorCode {
    none = 0,
    emptyText = 1,
    textTooLong = 2,
    badVoice = 3,
    badSpeed = 4,
    badAudio = 5,
    engineNotConnected = 6,
    engineFailed = 7,
    queueFull = 8,
    timeout = 9,
    cloneFailed = 10,
    notFound = 11,
};

// The machine word of the "error" field of a JSON error body.
std::string_view ttsErrorName(TtsErrorCode code);

class TtsError : public std::exception {
public:
    TtsError(TtsErrorCode failure, std::string text) : code(failure), message(std::move(text)) {}

    [[nodiscard]] const char* what() const noexcept override { return message.c_str(); }
    [[nodiscard]] int httpStatus() const;

    TtsErrorCode code;
    std::string message;
};

}  // namespace zepho
