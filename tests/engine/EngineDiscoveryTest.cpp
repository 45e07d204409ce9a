#include <cstdlib>
#include <filesystem>

#include "core/config/ZEPHOPaths.h"
#include "core/engine/EngineDiscovery.h"
#include "tests/engine/S2TestSupport.h"
#include "tests/support/TempDir.h"

namespace zepho {
namespace {

using test::writeText;

class EngineDiscovery : public test::S2Test {};

TEST_F(EngineDiscovery, takesTheLargestModel) {
    const test::TempDir directory;
    EXPECT_EQ(findModelFile(directory.file("none")), "");
    writeText(directory.file("empty.gguf"), "");
    EXPECT_EQ(findModelFile(directory.path()), "");
    writeText(directory.file("b.gguf"), "small");
    writeText(directory.file("a.gguf"), "the large one");
    for (const char* unseen : {"A.GGUF", "c.gguf.part", "below/d.gguf"})
        writeText(directory.file(unseen), "not seen, though it is the largest of all");
    std::filesystem::create_symlink("gone", directory.file("dangling.gguf"));
    EXPECT_EQ(findModelFile(directory.path()), directory.file("a.gguf"));
    std::filesystem::create_symlink("A.GGUF", directory.file("link.gguf"));
    EXPECT_EQ(findModelFile(directory.path().substr(0, directory.path().size() - 1)),
              directory.file("link.gguf"));
}

TEST_F(EngineDiscovery, prefersTheEngineOfTheDataRoot) {
    const test::TempDir bundled;
    ::setenv("ZEPHO_ENGINE_DIR", bundled.path().c_str(), 1);
    EXPECT_EQ(engineDirectory(), root + "engine/");
    EXPECT_EQ(enginePath(), root + "engine/s2");
    EXPECT_TRUE(backendAvailable(ComputeBackend::cpu));
    EXPECT_FALSE(backendAvailable(ComputeBackend::metal));
    writeText(root + "engine/libggml-metal.dylib", "x");
    EXPECT_TRUE(backendAvailable(ComputeBackend::metal));
    EXPECT_FALSE(backendUsable(ComputeBackend::metal)) << "there is no such device here";
    EXPECT_TRUE(backendUsable(ComputeBackend::cpu));

    std::filesystem::remove(root + "engine/s2");
    EXPECT_EQ(engineDirectory(), bundled.path());
    EXPECT_FALSE(engineInstalled());
    writeText(bundled.file("s2"), "x");
    EXPECT_EQ(enginePath(), bundled.file("s2"));
    ::unsetenv("ZEPHO_ENGINE_DIR");
    EXPECT_EQ(engineDirectory(), std::nullopt);
    EXPECT_FALSE(engineInstalled());
    EXPECT_FALSE(backendAvailable(ComputeBackend::auto_));

    EXPECT_TRUE(tokenizerInstalled());
    writeText(root + "models/tokenizer.json", "");
    EXPECT_FALSE(tokenizerInstalled());
}

TEST_F(EngineDiscovery, searchesModelsThenEngineThenTheRoot) {
    writeText(root + "models/named.gguf", "x");
    writeText(root + "engine/e.gguf", "larger than the others");
    EXPECT_EQ(findS2Files(root, "named.gguf").model, root + "models/named.gguf");
    S2Files files = findS2Files(root, "gone.gguf");
    EXPECT_EQ(files.model, root + "models/voice.gguf");
    EXPECT_EQ(files.tokenizer, root + "models/tokenizer.json");
    EXPECT_EQ(files.missing(), "");

    std::filesystem::remove_all(root + "models");
    files = findS2Files(root, "");
    EXPECT_EQ(files.model, root + "engine/e.gguf");
    EXPECT_EQ(files.tokenizer, "") << "it counts only beside the model";

    const test::TempDir elsewhere;
    EXPECT_EQ(findS2Files(elsewhere.path(), "").missing(), "engine/s2, models/*.gguf");
    writeText(elsewhere.file("r.gguf"), "x");
    EXPECT_EQ(findS2Files(elsewhere.path(), "").model, elsewhere.file("r.gguf"));
    EXPECT_EQ(findS2Files(elsewhere.path(), "").missing(), "engine/s2");
    writeText(elsewhere.file("engine/s2"), "x");
    EXPECT_EQ(findS2Files(elsewhere.path(), "").executable, elsewhere.file("engine/s2"));
    EXPECT_TRUE(findS2Files(elsewhere.path(), "").complete());
}

}  // namespace
}  // namespace zepho
