#include <filesystem>

#include <gtest/gtest.h>

#include "core/config/ZEPHOPaths.h"
#include "core/diag/Language.h"
#include "core/models/DownloadProgress.h"
#include "core/models/DownloadVerdict.h"
#include "core/models/ModelCatalog.h"
#include "core/platform/Files.h"

namespace zepho {
namespace {

TEST(ModelCatalog, listsWhatThereIsAndWhatIsInstalled) {
    const std::vector<ModelVariant> all = modelCatalog();
    ASSERT_EQ(all.size(), 7U);
    // Each note has its row in the tables.
    for (const ModelVariant& each : all)
        EXPECT_EQ(each.display.find("显存"), std::string::npos) << each.display;
    setUiLang(UiLang::zh);
    EXPECT_EQ(recommendedVariant().display, "q6_k      4.53 GB   6~8 GB 显存 · 推荐");
    setUiLang(UiLang::en);
    EXPECT_EQ(findVariant("S2-PRO-Q6_K.GGUF")->sizeBytes, 4864050462);
    EXPECT_FALSE(findVariant("tokenizer.json"));

    std::filesystem::remove_all(ZEPHOPaths::dataRoot());
    EXPECT_TRUE(installedModels().empty());
    for (const char* name : {"b.gguf", "a.gguf", "B.gguf", "c.gguf.part", "d.GGUF", "e.json"})
        saveFileBytes(ZEPHOPaths::modelsDir() + name, asBytes("x"));
    EXPECT_EQ(installedModels(), (std::vector<std::string>{"B.gguf", "a.gguf", "b.gguf"}));
}

TEST(DownloadProgress, tellsWhatHasComeAndWhatIsLeft) {
    const std::pair<std::int64_t, std::string> rows[] = {
        {-1, "?"},
        {1023, "0 KB"},
        {1048575, "1023 KB"},
        {1048576, "1.0 MB"},
        {1073741823, "1024.0 MB"},
        {1073741824, "1.00 GB"},
    };
    for (const auto& [bytes, words] : rows) EXPECT_EQ(humanSize(bytes), words);

    DownloadProgress progress{
        DownloadStage::downloading, "a.gguf", 1 << 20, 4 << 20, 48 * 1024.0, "why"};
    EXPECT_EQ(progress.describe(), "a.gguf  1.0 MB / 4.0 MB  (25.0%)  48 KB/s  ~1 m 4 s left");
    progress.bytesPerSec = 0.5;
    EXPECT_EQ(progress.describe(), "a.gguf  1.0 MB / 4.0 MB  (25.0%)  ?/s");
    progress.bytesPerSec = 1024;
    progress.total = 0;
    EXPECT_EQ(progress.describe(), "a.gguf  1.0 MB / ?  (0.0%)  1 KB/s");
    progress.total = 1 << 19;
    EXPECT_EQ(progress.percent(), 100.0);
    EXPECT_EQ(progress.etaSeconds(), 0);
    progress.stage = DownloadStage::failed;
    EXPECT_EQ(progress.describe(), "a.gguf — failed: why");
}

TEST(DownloadVerdict, comparesWithTheServersWordAndElseWithTheEstimate) {
    using Verdict = DownloadVerdict;
    const struct {
        std::int64_t actual, announced, estimate;
        Verdict verdict;
    } rows[] = {
        {-1, 5, 5, Verdict::empty},
        {0, 0, 0, Verdict::empty},
        {5, 5, 9'000'000, Verdict::passed},
        {4, 5, 4, Verdict::incomplete},
        {6, 5, 6, Verdict::incomplete},
        {3072, 0, 0, Verdict::passed},
        {11534336, 0, 12582912, Verdict::passed},
        {11534335, 0, 12582912, Verdict::sizeMismatch},
        {13631489, 0, 12582912, Verdict::sizeMismatch},
        {20971519 + 1048576, 0, 20971519, Verdict::passed},
        {20971520 + 1048577, 0, 20971520, Verdict::sizeMismatch},
        {4864050462 - 243202524, 0, 4864050462, Verdict::sizeMismatch},
        {4864050462 + 243202523, -1, 4864050462, Verdict::passed},
    };
    for (const auto& row : rows)
        EXPECT_EQ(judgeDownload(row.actual, row.announced, row.estimate), row.verdict)
            << row.actual << " of " << row.announced << " or about " << row.estimate;
}

}  // namespace
}  // namespace zepho
