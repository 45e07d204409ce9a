// The fixed list of model files that the program offers, and what is installed of it.
//
// Questions to the file system that change nothing, and values. Any thread; nothing throws. Whether
// tokenizer and engine are there is asked in core/engine/EngineDiscovery.h.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zepho {

enum class DownloadKind { model, tokenizer };

struct ModelVariant {
    std::string id;              // name of the quantisation
    std::string fileName;        // on the server and on disk
    std::string display;         // the line of pickers, in the language of its making
    std::string url;             // a fixed address; empty: downloadUrl() makes one
    std::int64_t sizeBytes = 0;  // an estimate
    DownloadKind kind = DownloadKind::model;
};

// Made anew by each call, in the current interface language.
[[nodiscard]] std::vector<ModelVariant> modelCatalog();
[[nodiscard]] ModelVariant recommendedVariant();
// Comes along with every model and is no part of the catalogue.
[[nodiscard]] ModelVariant tokenizerVariant();
// By its file name, without regard to case.
[[nodiscard]] std::optional<ModelVariant> findVariant(std::string_view fileName);

// `host` is scheme and host; one "/" at its end makes no difference.
[[nodiscard]] std::string downloadUrl(std::string_view host, std::string_view fileName);

// The names of the models on disk, sorted.
[[nodiscard]] std::vector<std::string> installedModels();

// "4.53 GB", "1.0 MB", "12 KB"; "?" for nothing and less.
[[nodiscard]] std::string humanSize(std::int64_t bytes);

}  // namespace zepho
