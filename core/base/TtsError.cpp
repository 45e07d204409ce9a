#include "core/base/TtsError.h"

namespace zepho {

std::string_view ttsErrorName(TtsErrorCode code) {
    switch (code) {
        case TtsErrorCode::none:
            return "ok";
        case TtsErrorCode::emptyText:
            return "empty_text";
        case TtsErrorCode::textTooLong:
            return "text_too_long";
        case TtsErrorCode::badVoice:
            return "bad_voice";
        case TtsErrorCode::badSpeed:
            return "bad_speed";
        case TtsErrorCode::badAudio:
            return "bad_audio";
        case TtsErrorCode::engineNotConnected:
            return "engine_not_connected";
        case TtsErrorCode::engineFailed:
            return "engine_failed";
        case TtsErrorCode::queueFull:
            return "queue_full";
        case TtsErrorCode::timeout:
            return "timeout";
        case TtsErrorCode::cloneFailed:
            return "clone_failed";
        case TtsErrorCode::notFound:
            return "not_found";
    }
    return "ok";
}

int TtsError::httpStatus() const {
    switch (code) {
        case TtsErrorCode::emptyText:
        case TtsErrorCode::badSpeed:
        case TtsErrorCode::badAudio:
            return 400;
        case TtsErrorCode::badVoice:
        case TtsErrorCode::notFound:
            return 404;
        case TtsErrorCode::textTooLong:
            return 413;
        case TtsErrorCode::engineNotConnected:
        case TtsErrorCode::queueFull:
            return 503;
        case TtsErrorCode::timeout:
            return 504;
        case TtsErrorCode::none:
        case TtsErrorCode::engineFailed:
        case TtsErrorCode::cloneFailed:
            break;
    }
    return 500;
}

}  // namespace zepho
