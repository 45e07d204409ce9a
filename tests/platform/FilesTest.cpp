#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "core/platform/Errors.h"
#include "core/platform/Files.h"
#include "tests/support/TempDir.h"

namespace zepho {
namespace {

namespace fs = std::filesystem;

std::size_t entriesOf(const std::string& directory) {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(directory), fs::directory_iterator()));
}

TEST(Files, SavesAndLoadsWholeFiles) {
    const test::TempDir directory;
    const std::string path = directory.file("a/b/c.bin");
    std::string content(300000, '\0');
    for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 7);
    saveFileBytes(path, asBytes(content));
    EXPECT_EQ(asText(*loadFileBytes(path)), content);
    saveFileBytes(path, asBytes("short"));
    EXPECT_EQ(asText(*loadFileBytes(path)), "short");
    saveFileBytes(path, {});
    EXPECT_TRUE(loadFileBytes(path)->empty());
    EXPECT_EQ(entriesOf(directory.file("a/b")), 1U);
    EXPECT_EQ(loadFileBytes(directory.file("missing")), std::nullopt);
    EXPECT_EQ(loadFileBytes(directory.path()), std::nullopt);
    // The kernel tells no size for these.
    const auto status = loadFileBytes("/proc/self/status");
    ASSERT_TRUE(status);
    EXPECT_FALSE(status->empty());
}

TEST(Files, ASaveKeepsThePermissionsThatAnOwnerHasSet) {
    const test::TempDir directory;
    const std::string path = directory.file("keys");
    saveFileBytes(path, asBytes("old"));
    // More than the mask gives a new file, and less.
    for (const fs::perms wanted : {fs::perms{0600}, fs::perms{0666}, fs::perms{0400}}) {
        fs::permissions(path, wanted);
        // Nobody else may look at the unfinished file, either.
        saveFilePieces(path, [&](Bytes& piece) {
            for (const auto& entry : fs::directory_iterator(directory.path()))
                EXPECT_EQ(entry.status().permissions(), wanted) << entry.path();
            piece = toBytes("new");
            return false;
        });
        EXPECT_EQ(fs::status(path).permissions(), wanted);
        EXPECT_EQ(asText(*loadFileBytes(path)), "new");
    }
}

TEST(Files, WhatIsInTheWayIsToldAndStays) {
    const test::TempDir directory;
    const std::string taken = directory.file("taken");
    fs::create_directories(taken + "/inside");
    try {
        saveFileBytes(taken, asBytes("x"));
        ADD_FAILURE() << "saved over a directory";
    } catch (const std::system_error& error) {
        EXPECT_EQ(describeError(error), error.code().message() + " (" + taken + ")");
    }
    const std::string file = directory.file("file");
    saveFileBytes(file, asBytes("old"));
    EXPECT_THROW(saveFileBytes(file + "/below", asBytes("x")), std::system_error);
    EXPECT_THROW(createDirectories(file), std::system_error);
    EXPECT_EQ(asText(*loadFileBytes(file)), "old");
    EXPECT_EQ(entriesOf(directory.path()), 2U);
}

// A process that was killed while it saved leaves its temporary file; the next one may have the same
// number.
TEST(Files, LeftoverTemporaryFilesAreNoObstacle) {
    const test::TempDir directory;
    const std::string path = directory.file("config.json");
    const std::string own = ".zepho-tmp-" + std::to_string(::getpid()) + "-";
    for (int i = 0; i < 64; ++i) {
        const std::string leftover = path + own + std::to_string(i);
        ASSERT_TRUE(isTemporaryName(lastPathComponent(leftover)));
        ASSERT_TRUE(std::ofstream(leftover) << "half");
    }
    saveFileBytes(path, asBytes("new"));
    EXPECT_EQ(asText(*loadFileBytes(path)), "new");
    EXPECT_EQ(entriesOf(directory.path()), 65U);
    EXPECT_FALSE(isTemporaryName("config.json"));
}

TEST(Files, ConcurrentSavesLeaveOneOfTheContents) {
    const test::TempDir directory;
    const std::string path = directory.file("shared");
    std::vector<std::thread> writers;
    for (char letter = 'a'; letter < 'e'; ++letter)
        writers.emplace_back([&path, letter] {
            for (int i = 0; i < 10; ++i) {
                saveFileBytes(path, asBytes(std::string(5000, letter)));
                const auto seen = loadFileBytes(path);
                ASSERT_TRUE(seen);
                ASSERT_EQ(asText(*seen), std::string(5000, static_cast<char>((*seen)[0])));
            }
        });
    for (std::thread& writer : writers) writer.join();
    EXPECT_EQ(entriesOf(directory.path()), 1U);
}

}  // namespace
}  // namespace zepho
