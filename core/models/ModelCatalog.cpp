#include "core/models/ModelCatalog.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "core/base/Addresses.h"
#include "core/config/ZEPHOPaths.h"
#include "core/diag/Language.h"
#include "core/platform/Unicode.h"

namespace zepho {
namespace {

constexpr std::int64_t kib = 1LL << 10;
constexpr std::int64_t mib = 1LL << 20;
constexpr std::int64_t gib = 1LL << 30;

ModelVariant makeVariant(std::string_view id, std::int64_t sizeBytes, std::string_view note) {
    ModelVariant variant;
    variant.id = id;
    variant.fileName = "s2-pro-" + variant.id + ".gguf";
    variant.display = formatText("%-7s  %8s   %@", id, humanSize(sizeBytes), T(note));
    variant.sizeBytes = sizeBytes;
    return variant;
}

}  // namespace

std::vector<ModelVariant> modelCatalog() {
    return {
        makeVariant("q4_k_m", 3833258311, "3~4 GB 显存 / 纯 CPU 首选"),
        makeVariant("q5_k_m", 4327179550, "4~6 GB 显存"),
        makeVariant("q6_k", 4864050462, "6~8 GB 显存 · 推荐"),
        makeVariant("q8_0", 6045166469, "8 GB 以上显存"),
        makeVariant("q3_k", 3253437726, "显存紧张,质量有损"),
        makeVariant("q2_k", 2770253905, "最小,质量明显下降"),
        makeVariant("f16", 10640781475, "不量化,质量最好,要 10 GB+ 显存"),
    };
}

ModelVariant recommendedVariant() {
    const std::vector<ModelVariant> all = modelCatalog();
    const auto found =
        std::find_if(all.begin(), all.end(), [](const auto& each) { return each.id == "q6_k"; });
    return found != all.end() ? *found : all.front();
}

ModelVariant tokenizerVariant() {
    ModelVariant variant;
    variant.id = "tokenizer";
    variant.fileName = "tokenizer.json";
    variant.display = T("分词器 tokenizer.json(必需)");
    variant.sizeBytes = 12 * mib;
    variant.kind = DownloadKind::tokenizer;
    return variant;
}

std::optional<ModelVariant> findVariant(std::string_view fileName) {
    for (ModelVariant& variant : modelCatalog())
        if (equalsIgnoringCase(variant.fileName, fileName)) return std::move(variant);
    return std::nullopt;
}

std::string downloadUrl(std::string_view host, std::string_view fileName) {
    if (host.ends_with('/')) host.remove_suffix(1);
    return formatText("%s/%s/resolve/main/%s?download=true", host, hfRepo, fileName);
}

std::vector<std::string> installedModels() {
    std::vector<std::string> names;
    std::error_code error;
    std::filesystem::directory_iterator entry(ZEPHOPaths::modelsDir(), error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        std::string name = entry->path().filename().string();
        if (name.ends_with(".gguf")) names.push_back(std::move(name));
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string humanSize(std::int64_t bytes) {
    if (bytes <= 0) return "?";
    if (bytes >= gib)
        return formatText("%.2f GB", static_cast<double>(bytes) / static_cast<double>(gib));
    if (bytes >= mib)
        return formatText("%.1f MB", static_cast<double>(bytes) / static_cast<double>(mib));
    return std::to_string(bytes / kib) + " KB";
}

}  // namespace zepho
