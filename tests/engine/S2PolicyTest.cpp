// The pure parts of the supervision: what follows an exit, the command line, the request body.
#include <set>
#include <thread>

#include <gtest/gtest.h>

#include "core/engine/S2ExitPolicy.h"
#include "core/engine/S2Form.h"
#include "core/engine/S2Process.h"
#include "tests/engine/S2TestSupport.h"

namespace zepho {
namespace {

using Words = std::vector<std::string>;

TEST(S2Policy, tellsPeopleWhatAnExitDuringTheLoadSuggests) {
    const std::string memory =
        "the engine hit an access violation (the model file may be corrupt).";
    EXPECT_EQ(exitHint({ExitCause::busError, 7}), memory);
    EXPECT_EQ(exitHint({ExitCause::segmentationFault, 11}), memory);
    EXPECT_EQ(exitHint({ExitCause::aborted, 6}),
              "引擎主动中止了(多半是某个算子这个后端没实现)。看引擎日志的最后几行。");
    EXPECT_EQ(exitHint({ExitCause::illegalInstruction, 4}).find("this PC's CPU"), 0U);
}

TEST(S2Policy, buildsTheCommandLineInOrder) {
    const S2Files files{"/e/s2", "/m/a.gguf", "/m/tokenizer.json"};
    EngineOptions options;
    EXPECT_EQ(s2Arguments(files, options, 17152, false),
              (Words{"--model", "/m/a.gguf", "--server", "--host", "127.0.0.1", "--port", "17152",
                     "--tokenizer", "/m/tokenizer.json", "-ngl", "0", "--codec-cpu"}));

    options.threads = 4;
    options.gpuLayers = -1;
    options.extraArgs = "  --a   b c=\"d e\" ";
    EXPECT_EQ(s2Arguments({"/e/s2", "/m/a.gguf", ""}, options, 3, true),
              (Words{"--model", "/m/a.gguf", "--server", "--host", "127.0.0.1", "--port", "3", "-M",
                     "-ngl", "99", "--codec-cpu", "-threads", "4", "--a", "b", "c=\"d", "e\""}));

    const auto gpuWords = [&](ComputeBackend compute, std::int64_t layers, bool gpu) {
        EngineOptions with;
        with.compute = compute;
        with.gpuLayers = layers;
        const Words words = s2Arguments({"/e/s2", "/m", ""}, with, 1, gpu);
        return Words(words.begin() + 7, words.end());
    };
    const Words none{"-ngl", "0", "--codec-cpu"};
    EXPECT_EQ(gpuWords(ComputeBackend::metal, 12, true),
              (Words{"-M", "-ngl", "12", "--codec-cpu"}));
    EXPECT_EQ(gpuWords(ComputeBackend::metal, 12, false), none);
    EXPECT_EQ(gpuWords(ComputeBackend::cpu, 12, true), none);
}

int numberOf(const std::optional<S2Port>& port) {
    return port ? port->number : 0;
}

TEST(S2Policy, takesTheFirstPortOnWhichNobodyAnswers) {
    S2Tuning tuning;
    tuning.firstPort = test::findFreePorts(2);
    tuning.lastPort = tuning.firstPort + 1;
    // Taken but not answered: the test is a connect, not a bind.
    auto first = std::make_unique<test::TakenPort>(tuning.firstPort, false);
    EXPECT_EQ(numberOf(pickS2Port(tuning)), tuning.firstPort);
    first.reset();
    first = std::make_unique<test::TakenPort>(tuning.firstPort, true);
    EXPECT_EQ(numberOf(pickS2Port(tuning)), tuning.lastPort);
}

TEST(S2Policy, givesEachOfThoseWhoPickAtOnceAPortOfItsOwn) {
    S2Tuning tuning;
    tuning.firstPort = test::findFreePorts(8);
    tuning.lastPort = tuning.firstPort + 7;
    std::vector<std::optional<S2Port>> picked(8);
    std::vector<std::thread> threads;
    for (std::optional<S2Port>& one : picked)
        threads.emplace_back([&one, &tuning] { one = pickS2Port(tuning); });
    for (std::thread& thread : threads) thread.join();
    std::set<int> numbers;
    for (const std::optional<S2Port>& one : picked) numbers.insert(numberOf(one));
    EXPECT_EQ(numbers.size(), picked.size());
    EXPECT_EQ(numbers.count(0), 0U);
    EXPECT_EQ(numberOf(pickS2Port(tuning)), 0);
    picked[3].reset();
    EXPECT_NE(numberOf(pickS2Port(tuning)), 0);
}

std::string bodyOf(const S2Params& params) {
    return std::string(asText(buildGenerateForm(params, "----ZEPHO1").body));
}

TEST(S2Form, isTheSameByteForByte) {
    S2Params params;
    params.text = " [calm] 你好 ";
    params.referenceAudio = toBytes("RIFFbytes\xFF\xFB\r\n");
    params.seed = -5;
    const std::string plain = "Content-Type: text/plain; charset=utf-8\r\n\r\n";
    const std::string text = "------ZEPHO1\r\nContent-Disposition: form-data; name=\"text\"\r\n" +
                             plain +
                             " [calm] 你好 \r\n"
                             "------ZEPHO1\r\nContent-Disposition: form-data; name=\"params\"\r\n" +
                             plain + samplingJson(params) + "\r\n";
    EXPECT_EQ(bodyOf(params),
              text +
                  "------ZEPHO1\r\nContent-Disposition: form-data; name=\"reference\"; "
                  "filename=\"reference.wav\"\r\nContent-Type: application/octet-stream\r\n\r\n"
                  "RIFFbytes\xFF\xFB\r\n\r\n"
                  "------ZEPHO1\r\nContent-Disposition: form-data; name=\"reference_text\"\r\n" +
                  plain + "\r\n------ZEPHO1--\r\n");
    params.voiceProfile = "/v/p.bin";
    EXPECT_EQ(bodyOf(params),
              text + "------ZEPHO1\r\nContent-Disposition: form-data; name=\"voice\"\r\n" + plain +
                  "/v/p.bin\r\n------ZEPHO1--\r\n");
    params.voiceProfile.clear();
    params.referenceAudio = {};
    EXPECT_EQ(bodyOf(params), text + "------ZEPHO1--\r\n");
}

TEST(S2Form, namesTheClipByItsBytes) {
    const std::pair<std::string, std::string> rows[] = {
        {"\xFF\xFB\x90\x64 frames", "reference.mp3"},
        {"ID3\x04 and more", "reference.mp3"},
        {"RIFF\xFF\xFB\x90\x64 a wav", "reference.wav"}};
    for (const auto& [bytes, name] : rows) {
        S2Params params;
        params.referenceAudio = toBytes(bytes);
        EXPECT_NE(bodyOf(params).find("filename=\"" + name + "\""), std::string::npos) << bytes;
    }
}

TEST(S2Form, writesFloatsAsTheyWereTyped) {
    S2Params params;
    params.maxNewTokens = 77;
    params.temperature = 0.7F;
    params.topP = 0.123456F;
    params.topK = 3;
    params.repetitionPenalty = 1.1F;
    EXPECT_EQ(samplingJson(params),
              "{\"max_new_tokens\":77,\"repetition_penalty\":1.1,"
              "\"temperature\":0.7,\"top_k\":3,\"top_p\":0.1235}");
    params.seed = 9;
    EXPECT_NE(samplingJson(params).find("\"seed\":9"), std::string::npos);
}

}  // namespace
}  // namespace zepho
