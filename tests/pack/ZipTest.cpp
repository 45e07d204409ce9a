#include <cstdlib>

#include <gtest/gtest.h>

#include "core/pack/Deflate.h"
#include "core/pack/Noise.h"
#include "core/pack/ZipFormat.h"
#include "core/pack/ZipReader.h"
#include "core/pack/ZipWriter.h"
#include "core/platform/Files.h"
#include "tests/pack/ZipForge.h"
#include "tests/support/TempDir.h"

namespace zepho::test {
namespace {

template <class Action>
std::string zipErrorOf(Action action) {
    try {
        action();
    } catch (const ZipError& error) {
        return error.what();
    }
    return "no error";
}

std::string openError(const Bytes& archive) {
    return zipErrorOf([&] { ZipReader reader(archive); });
}

std::string readError(const Bytes& archive, const std::string& name) {
    return zipErrorOf([&] { static_cast<void>(ZipReader(archive).read(name)); });
}

Bytes repeated(std::string_view text, int times) {
    Bytes out;
    for (int i = 0; i < times; ++i) out.insert(out.end(), text.begin(), text.end());
    return out;
}

TEST(Inflate, GrowsBeyondAWrongClaimUpToItsBounds) {
    const auto inflated = [](const Bytes& stream, std::uint64_t expected) {
        std::uint64_t plenty = std::uint64_t{1} << 30;
        return inflate(stream, expected, plenty).size();
    };
    EXPECT_EQ(inflated({}, 10), 0U);
    // A claim too low, right, and one that fills the first buffer short of the end.
    for (const std::uint64_t claim : {0U, 50000U, 100000U, 300000U})
        EXPECT_EQ(inflated(*deflate(Bytes(100000, 0)), claim), 100000U) << claim;
    // 1024 doubled seven times holds 131072 bytes, and a full last buffer counts as growing.
    EXPECT_EQ(inflated(*deflate(Bytes(131071, 0)), 0), 131071U);
    EXPECT_EQ(zipErrorOf([&] { inflated(*deflate(Bytes(131072, 0)), 0); }),
              "corrupt zip: inflate output kept growing");
    Bytes cut = *deflate(noise(5000));
    cut.resize(cut.size() / 2);
    EXPECT_EQ(zipErrorOf([&] { inflated(cut, 5000); }), "corrupt zip: inflate failed");
}

TEST(ZipWriter, StoresWhatDoesNotShrinkAndReadsBack) {
    const Bytes text = repeated("Flight CA123 is now boarding. ", 400);
    const std::vector<ZipEntry> entries{
        {"空港/音声.wav", text}, {"noise", noise(3000)},      {"empty", {}},
        {"one", toBytes("x")},   {"noise", toBytes("later")}, {"folder/", {}}};
    ZipWriter writer;
    for (const ZipEntry& entry : entries) writer.add(entry.name, entry.data);
    const Bytes archive = writer.finish();
    EXPECT_EQ(zip::get16(&archive[6]), 0) << "no flags, for a name in UTF-8 neither";
    EXPECT_EQ(zip::get32(&archive[10]), 0U) << "no time";
    const ZipReader reader(archive);
    EXPECT_EQ(reader.names(), (std::vector<std::string>{"empty", "noise", "one", "空港/音声.wav"}));
    EXPECT_EQ(reader.read("空港/音声.wav"), text);
    EXPECT_EQ(reader.read("noise"), toBytes("later"));
    EXPECT_TRUE(reader.read("empty").empty());
    EXPECT_EQ(readError(archive, "One"), "corrupt zip: no entry One");

    // Entries that were packed apart, and an archive that is taken out part by part, give the same.
    ZipWriter emptied;
    Bytes parts;
    Bytes part = toBytes("of something else");
    for (const ZipEntry& entry : entries) {
        const PackedEntry packed = packEntry(entry);
        EXPECT_EQ(packed.method == zip::deflated, entry.data == text) << entry.name;
        emptied.add(packed);
        if (entry.name == "one") continue;
        emptied.takeOut(part);
        appendBytes(parts, part);
    }
    static_cast<void>(emptied.finish());
    emptied.takeOut(part);
    appendBytes(parts, part);
    EXPECT_EQ(parts, archive);
}

// Only what deflate could not shrink anyhow goes without an attempt at it.
TEST(ZipWriter, SparesItselfTheAttemptAtNoiseOnly) {
    constexpr std::size_t size = std::size_t{1} << 20;
    const auto with = [](auto change) {
        Bytes data = noise(size);
        for (std::size_t i = 0; i < size; ++i) change(data, i);
        return data;
    };
    EXPECT_TRUE(looksLikeNoise(noise(size)));
    // Too little to know; values that are all alike only over the whole; what comes again within the
    // codec's reach; and some that is even.
    const std::vector<Bytes> others{
        noise(3000),
        with([](Bytes& data, std::size_t i) { data[i] = data[i] / 2 + (i < size / 2 ? 0 : 128); }),
        with([](Bytes& data, std::size_t i) { data[i] = data[i < 6000 ? i : i - 6000]; }),
        with([](Bytes& data, std::size_t i) { data[i] = i > size - 4000 ? 0 : data[i]; })};
    for (const Bytes& data : others) EXPECT_FALSE(looksLikeNoise(data));
    EXPECT_EQ(packEntry({"a", others.back()}).method, zip::deflated);
}

TEST(ZipReader, FindsTheEndRecordWithinReach) {
    const auto archive = [](std::size_t commentLength) {
        return forgeZip({{"a", toBytes("data"), 0, 4}},
                        {std::nullopt, std::nullopt, std::string(commentLength, 'c')});
    };
    for (const std::size_t length : {0U, 100U, 65535U, 65536U})
        EXPECT_EQ(asText(ZipReader(archive(length)).read("a")), "data") << length;
    EXPECT_EQ(openError(archive(65537)), "not a zip archive") << "65559 bytes from the end";
    const Bytes bare = forgeZip({});
    EXPECT_EQ(openError(Bytes(bare.begin(), bare.end() - 1)), "not a zip archive");
    EXPECT_EQ(zipErrorOf([] { ZipReader reader(std::string("/no/such/file")); }),
              "not a zip archive");

    // The last signature wins, although the one before it is the real one.
    Bytes twice = forgeZip({{"a", toBytes("data"), 0, 4}},
                           {std::nullopt, std::nullopt, std::string(asText(bare))});
    EXPECT_TRUE(ZipReader(twice).names().empty());
}

TEST(ZipReader, TakesOddNamesAndWrongClaims) {
    const Bytes text = repeated("gate ", 300);
    const ZipReader reader(forgeZip({
        {"claim", *deflate(text), 8, 3},
        {"directory/", {}, 0, 0},
        {"broken \xff\xe3\x81 name", toBytes("n"), 0, 1},
        {"same", toBytes("first"), 0, 5},
        {"same", toBytes("second"), 0, 6},
    }));
    EXPECT_EQ(reader.read("claim"), text);
    EXPECT_FALSE(reader.contains("directory/"));
    EXPECT_EQ(asText(reader.read("same")), "second");
    EXPECT_TRUE(reader.names()[0].starts_with("broken \xEF\xBF\xBD"));
    EXPECT_EQ(asText(reader.read(reader.names()[0])), "n");
}

TEST(ZipReader, RefusesDamageWithItsText) {
    const ForgedEntry good{"a", toBytes("data"), 0, 4};
    const auto with = [&](auto change) {
        ForgedEntry entry = good;
        change(entry);
        return forgeZip({entry});
    };
    const std::string badEntry = "corrupt zip: bad central directory entry";
    EXPECT_EQ(openError(forgeZip({good}, {65535, {}, {}})), badEntry);
    EXPECT_EQ(openError(forgeZip({good}, {{}, 0xFFFFFFFF, {}})), badEntry);
    Bytes longName = forgeZip({good});
    longName[longName.size() - 22 - 1 - 46 + 29] = 0x7F;
    EXPECT_EQ(openError(longName), "corrupt zip: truncated central directory");

    const std::string badLocal = "corrupt zip: bad local header for a";
    EXPECT_EQ(readError(with([](auto& e) { e.offset = 1; }), "a"), badLocal);
    EXPECT_EQ(readError(with([](auto& e) { e.offset = 0xFFFFFFFF; }), "a"), badLocal);
    EXPECT_EQ(readError(with([](auto& e) { e.csize = 5000; }), "a"),
              "corrupt zip: truncated data for a");
    EXPECT_EQ(readError(with([](auto& e) { e.method = 12; }), "a"),
              "corrupt zip: unsupported compression method 12 for a");
    EXPECT_EQ(readError(with([](auto& e) { e.method = 8; }), "a"), "corrupt zip: inflate failed");

    // Whatever is cut off an archive's end leads to an error.
    ZipWriter writer;
    writer.add("a", repeated("data", 50));
    const Bytes whole = writer.finish();
    for (std::size_t size = 0; size < whole.size(); ++size)
        EXPECT_NE(openError(Bytes(whole.begin(), whole.begin() + static_cast<long>(size))),
                  "no error");
}

TEST(ZipReader, RefusesBombsBeforeTheyBurst) {
    // A true claim, a lie, and a claim of the most that the field holds.
    const Bytes stream = zeroBomb(std::uint64_t{600} << 20);
    const auto bomb = [&](std::uint32_t claim) { return forgeZip({{"b", stream, 8, claim}}); };
    const std::string growing = "corrupt zip: inflate output kept growing";
    EXPECT_EQ(readError(bomb(1), "b"), growing);
    for (const std::uint32_t claim : {600U << 20, 1U, 0xFFFFFFFFU}) {
        const ZipReader reader(bomb(claim));
        std::uint64_t budget = 32U << 20;
        const auto read = [&] { static_cast<void>(reader.read("b", budget)); };
        EXPECT_EQ(zipErrorOf(read), growing) << claim;
        EXPECT_EQ(budget, 0U) << claim;
    }
    const ZipReader plain(forgeZip({{"p", Bytes(1000), 0, 1000}}));
    std::uint64_t budget = 1999;
    EXPECT_EQ(plain.read("p", budget).size(), 1000U);
    EXPECT_EQ(zipErrorOf([&] { static_cast<void>(plain.read("p", budget)); }),
              "corrupt zip: too much data for p");
    EXPECT_EQ(zipErrorOf([&] { ZipReader(bomb(600U << 20)).refuseBombs(512U << 20); }),
              "corrupt zip: the entries claim more than 512 MB");

    // Entries over each other could be read many times each.
    const Bytes inner = forgeZip({{"inner", toBytes("data"), 0, 4}});
    const std::vector<ForgedEntry> nested{
        {"outer", inner, 0, static_cast<std::uint32_t>(inner.size())}, {"inner", {}, 0, 4, 4, 35}};
    EXPECT_EQ(asText(ZipReader(forgeZip(nested)).read("inner")), "data");
    EXPECT_EQ(zipErrorOf([&] { ZipReader(forgeZip(nested)).refuseBombs(512U << 20); }),
              "corrupt zip: overlapping entries");
}

// Python takes names without the UTF-8 flag as code page 437, which loses nothing.
constexpr std::string_view checkFirstEntry = R"py(
import sys, zipfile
archive = zipfile.ZipFile(sys.argv[1])
entry = archive.infolist()[0]
assert archive.testzip() is None
assert entry.filename.encode('cp437').decode() == 'audio/\u97f3\u58f0-\u2460.wav'
assert (archive.read(entry), entry.create_version, entry.flag_bits) == (b'named', 20, 0)
)py";

constexpr std::string_view packAudio = R"py(
import glob, sys, zipfile
archive = zipfile.ZipFile(sys.argv[1], 'w', zipfile.ZIP_DEFLATED, strict_timestamps=False)
named = zipfile.ZipInfo('audio/\u97f3.wav')
named.comment = b'of this entry'
archive.writestr(named, b'named')
for name in glob.glob('audio/clip*'):
    archive.write(name)
archive.writestr('audio/empty.txt', b'', zipfile.ZIP_STORED)
)py";

TEST(ForeignTools, ReadWhatWeWriteAndWriteWhatWeRead) {
    const TempDir dir;
    const auto run = [&](const std::string& command) {
        return std::system(("cd " + dir.path() + " && (" + command + ") >output").c_str()) == 0;
    };
    const auto runPython = [&](std::string_view script, const std::string& argument) {
        saveFileBytes(dir.file("script.py"), asBytes(script));
        return run(ZEPHO_PYTHON " script.py " + argument);
    };
    std::vector<ZipEntry> files{{"audio/empty.txt", {}}};
    for (int i = 0; i < 3; ++i) {
        const std::string name = "audio/clip-" + std::to_string(i);
        files.push_back({name + ".wav", repeated("PCM" + std::to_string(i), 3000 + i)});
        files.push_back({name + ".mp3", noise(2000, static_cast<std::uint32_t>(i))});
    }
    ZipWriter writer;
    for (const ZipEntry& file : files) writer.add(file.name, file.data);
    saveFileBytes(dir.file("ours.cln"), writer.finish());
    for (const std::string command :
         {ZEPHO_UNZIP " -t ours.cln", ZEPHO_UNZIP " -q ours.cln", ZEPHO_ZIP " -T ours.cln"})
        EXPECT_TRUE(run(command)) << command;
    for (const ZipEntry& file : files)
        EXPECT_EQ(loadFileBytes(dir.file(file.name)), file.data) << file.name;
    ZipWriter named;
    named.add("audio/音声-①.wav", asBytes("named"));
    saveFileBytes(dir.file("named.cln"), named.finish());
    EXPECT_TRUE(runPython(checkFirstEntry, "named.cln"));

    const std::pair<std::string, bool> archives[] = {
        {"deflated.zip", run(ZEPHO_ZIP " -q -6 -r deflated.zip audio")},
        {"comment.zip", run("echo comment | " ZEPHO_ZIP " -q -0 -z -r comment.zip audio")},
        {"sizes-behind.zip", run(ZEPHO_ZIP " -q -r - audio | cat >sizes-behind.zip")},
        {"seven.zip", run(ZEPHO_7Z " a -tzip -bd seven.zip audio")},
        {"python.zip", runPython(packAudio, "python.zip")},
    };
    for (const auto& [name, made] : archives) {
        ASSERT_TRUE(made) << name;
        const ZipReader reader(dir.file(name));
        for (const ZipEntry& file : files)
            EXPECT_EQ(reader.read(file.name), file.data) << name << " " << file.name;
        EXPECT_NO_THROW(reader.refuseBombs(1 << 20)) << name;
    }
    EXPECT_EQ(asText(ZipReader(dir.file("python.zip")).read("audio/音.wav")), "named");
}

}  // namespace
}  // namespace zepho::test
