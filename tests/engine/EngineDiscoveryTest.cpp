#include <cstdlib>
#include <filesystem>

#include "core/engine/EngineDiscovery.h"
#include "tests/engine/S2TestSupport.h"
#include "tests/support/TempDir.h"

namespace zepho {
namespace {

using test::writeText;

class EngineDiscovery : public test::S2Test {
protected:
    const test::TempDir other;
};

TEST_F(EngineDiscovery, takesTheLargestModel) {
    writeText(other.file("empty.gguf"), "");
    EXPECT_EQ(findModelFile(other.path()), "");
    writeText(other.file("b.gguf"), "small");
    writeText(other.file("a.gguf"), "the large one");
    for (const char* unseen : {"A.GGUF", "c.gguf.part", "below/d.gguf"})
        writeText(other.file(unseen), "not seen, though it is the largest of all");
    std::filesystem::create_symlink("gone", other.file("dangling.gguf"));
    EXPECT_EQ(findModelFile(other.path()), other.file("a.gguf"));
    std::filesystem::create_symlink("A.GGUF", other.file("link.gguf"));
    EXPECT_EQ(findModelFile(other.path().substr(0, other.path().size() - 1)),
              other.file("link.gguf"));
}

TEST_F(EngineDiscovery, prefersTheEngineOfTheDataRoot) {
    ::setenv("ZEPHO_ENGINE_DIR", other.path().c_str(), 1);
    EXPECT_EQ(enginePath(), root + "engine/s2");
    EXPECT_FALSE(backendAvailable(ComputeBackend::metal));
    writeText(root + "engine/libggml-metal.dylib", "x");
    EXPECT_TRUE(backendAvailable(ComputeBackend::metal));
    EXPECT_FALSE(backendUsable(ComputeBackend::metal)) << "there is no such device here";

    std::filesystem::remove(root + "engine/s2");
    EXPECT_FALSE(engineInstalled());
    writeText(other.file("s2"), "x");
    EXPECT_EQ(enginePath(), other.file("s2"));
    ::unsetenv("ZEPHO_ENGINE_DIR");
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
    std::filesystem::remove_all(root + "models");
    files = findS2Files(root, "");
    EXPECT_EQ(files.model, root + "engine/e.gguf");
    EXPECT_EQ(files.tokenizer, "") << "it counts only beside the model";

    EXPECT_EQ(findS2Files(other.path(), "").missing(), "engine/s2, models/*.gguf");
    writeText(other.file("r.gguf"), "x");
    EXPECT_EQ(findS2Files(other.path(), "").model, other.file("r.gguf"));
    EXPECT_EQ(findS2Files(other.path(), "").missing(), "engine/s2");
    writeText(other.file("engine/s2"), "x");
    EXPECT_EQ(findS2Files(other.path(), "").executable, other.file("engine/s2"));
    EXPECT_TRUE(findS2Files(other.path(), "").complete());
}

}  // namespace
}  // namespace zepho
