#include <filesystem>

#include <gtest/gtest.h>

#include "core/base/Addresses.h"
#include "core/config/ZEPHOPaths.h"
#include "core/diag/Language.h"
#include "core/models/DownloadProgress.h"
#include "core/models/DownloadVerdict.h"
#include "core/models/ModelCatalog.h"
#include "core/platform/Files.h"

namespace zepho {
namespace {

TEST(ModelCatalog, listsTheVariantsInTheLanguageOfTheMoment) {
    const std::vector<ModelVariant> all = modelCatalog();
    ASSERT_EQ(all.size(), 7U);
    EXPECT_EQ(all[0].display, "q4_k_m    3.57 GB   3-4 GB VRAM / best for CPU-only");
    EXPECT_EQ(all[6].display, "f16       9.91 GB   unquantized, best quality, needs 10 GB+ VRAM");
    setUiLang(UiLang::zh);
    EXPECT_EQ(recommendedVariant().display, "q6_k      4.53 GB   6~8 GB 显存 · 推荐");
    EXPECT_EQ(tokenizerVariant().display, "分词器 tokenizer.json(必需)");
    setUiLang(UiLang::en);
    for (const ModelVariant& each : all) {
        EXPECT_EQ(each.fileName, "s2-pro-" + each.id + ".gguf");
        EXPECT_EQ(each.url, "");
        // Each note has its row in the tables.
        EXPECT_EQ(each.display.find("显存"), std::string::npos);
    }
    ASSERT_TRUE(findVariant("S2-PRO-Q6_K.GGUF"));
    EXPECT_EQ(findVariant("S2-PRO-Q6_K.GGUF")->sizeBytes, 4864050462);
    EXPECT_FALSE(findVariant("tokenizer.json"));
    EXPECT_EQ(tokenizerVariant().sizeBytes, 12582912);
    EXPECT_EQ(tokenizerVariant().display, "tokenizer.json (required)");
}

TEST(ModelCatalog, makesAddresses) {
    const std::string expected =
        "https://h/tessmarin/s2-pro-gguf/resolve/main/a.gguf?download=true";
    EXPECT_EQ(downloadUrl("https://h", "a.gguf"), expected);
    EXPECT_EQ(downloadUrl("https://h/", "a.gguf"), expected);
    EXPECT_EQ(downloadUrl("https://h//", "a.gguf").find("https://h//tess"), 0U);
    // The picker's labels name the hosts that are used.
    for (const std::string host : {hostOfficial, hostMirror}) {
        const std::string name = host.substr(std::string("https://").size());
        const bool official = host == hostOfficial;
        const std::string key = name + (official ? "(官方)" : "(国内镜像)");
        EXPECT_EQ(T(key), name + (official ? " (official)" : " (China mirror)"));
    }
}

TEST(ModelCatalog, listsWhatIsInstalled) {
    std::filesystem::remove_all(ZEPHOPaths::modelsDir());
    EXPECT_TRUE(installedModels().empty());
    for (const char* name : {"b.gguf", "a.gguf", "B.gguf", "c.gguf.part", "d.GGUF", "e.json"})
        saveFileBytes(ZEPHOPaths::modelsDir() + name, asBytes("x"));
    EXPECT_EQ(installedModels(), (std::vector<std::string>{"B.gguf", "a.gguf", "b.gguf"}));
}

TEST(ModelCatalog, putsSizesIntoWords) {
    struct Row {
        std::int64_t bytes;
        const char* words;
    };
    for (const Row& row :
         {Row{-1, "?"}, Row{0, "?"}, Row{1023, "0 KB"}, Row{1024, "1 KB"}, Row{1048575, "1023 KB"},
          Row{1048576, "1.0 MB"}, Row{1073741823, "1024.0 MB"}, Row{1073741824, "1.00 GB"},
          Row{4864050462, "4.53 GB"}})
        EXPECT_EQ(humanSize(row.bytes), row.words);
}

TEST(DownloadProgress, describesEveryStage) {
    DownloadProgress progress;
    EXPECT_EQ(progress.describe(), "Idle");
    progress = {DownloadStage::downloading, "a.gguf", 1 << 20, 4 << 20, 48 * 1024.0, "why"};
    EXPECT_EQ(progress.describe(), "a.gguf  1.0 MB / 4.0 MB  (25.0%)  48 KB/s  ~1 m 4 s left");
    progress.bytesPerSec = 0.5;
    EXPECT_EQ(progress.describe(), "a.gguf  1.0 MB / 4.0 MB  (25.0%)  ?/s");
    progress.bytesPerSec = 1024;
    progress.total = 0;
    EXPECT_EQ(progress.describe(), "a.gguf  1.0 MB / ?  (0.0%)  1 KB/s");
    progress.total = 1 << 19;
    EXPECT_EQ(progress.percent(), 100.0);
    EXPECT_EQ(progress.etaSeconds(), 0);

    struct Row {
        DownloadStage stage;
        const char* words;
    };
    for (const Row& row : {Row{DownloadStage::connecting, "a.gguf — connecting…"},
                           Row{DownloadStage::verifying, "a.gguf — verifying…"},
                           Row{DownloadStage::done, "a.gguf — done"},
                           Row{DownloadStage::failed, "a.gguf — failed: why"},
                           Row{DownloadStage::cancelled, "a.gguf — cancelled (partial kept)"}}) {
        progress.stage = row.stage;
        EXPECT_EQ(progress.describe(), row.words);
    }
}

TEST(DownloadVerdict, comparesWithTheServersWordAndElseWithTheEstimate) {
    using Verdict = DownloadVerdict;
    struct Row {
        std::int64_t actual, announced, estimate;
        Verdict verdict;
    };
    for (const Row& row : {
             Row{-1, 5, 5, Verdict::empty},
             Row{0, 0, 0, Verdict::empty},
             Row{5, 5, 9'000'000, Verdict::passed},
             Row{4, 5, 4, Verdict::incomplete},
             Row{6, 5, 6, Verdict::incomplete},
             Row{3072, 0, 0, Verdict::passed},
             Row{11534336, 0, 12582912, Verdict::passed},
             Row{11534335, 0, 12582912, Verdict::sizeMismatch},
             Row{13631488, 0, 12582912, Verdict::passed},
             Row{13631489, 0, 12582912, Verdict::sizeMismatch},
             Row{20971520 + 1048576, 0, 20971520, Verdict::passed},
             Row{20971520 + 1048577, 0, 20971520, Verdict::sizeMismatch},
             Row{20971519 + 1048576, 0, 20971519, Verdict::passed},
             Row{4864050462 - 243202523, 0, 4864050462, Verdict::passed},
             Row{4864050462 - 243202524, 0, 4864050462, Verdict::sizeMismatch},
             Row{4864050462 + 243202523, -1, 4864050462, Verdict::passed},
         })
        EXPECT_EQ(judgeDownload(row.actual, row.announced, row.estimate), row.verdict)
            << row.actual << " of " << row.announced << " or about " << row.estimate;
}

}  // namespace
}  // namespace zepho
