// The body of one request to the engine process: multipart/form-data, byte for byte as the process
// reads it. Plain values and pure functions; any thread.
#pragma once

#include <string>
#include <string_view>

#include "core/base/TtsTypes.h"
#include "core/platform/Bytes.h"

namespace zepho {

struct MultipartForm {
    std::string boundary;
    Bytes body;

    void addField(std::string_view name, std::string_view value);
    void addFile(std::string_view name, std::string_view fileName, ByteView bytes);
    // Nothing may be added after it.
    void finish();
};

// A fresh boundary that no text contains by chance.
[[nodiscard]] std::string makeBoundary();

// The sampling parameters as the process takes them.
[[nodiscard]] std::string samplingJson(const S2Params& params);

[[nodiscard]] MultipartForm buildGenerateForm(const S2Params& params, std::string boundary);

}  // namespace zepho
