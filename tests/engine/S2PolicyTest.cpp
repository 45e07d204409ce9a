// The pure parts of the supervision: what follows an exit, the command line, the request body.
#include <csignal>
#include <set>
#include <thread>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "core/base/Json.h"
#include "core/diag/Language.h"
#include "core/engine/S2ExitPolicy.h"
#include "core/engine/S2Form.h"
#include "core/engine/S2Process.h"
#include "tests/engine/S2TestSupport.h"

namespace zepho {
namespace {

using Words = std::vector<std::string>;

TEST(S2Policy, restartsOnlyWhatWasReadyAndOnlySoOften) {
    using Action = AfterExit::Action;
    struct Row {
        S2ChildPhase phase;
        int restarts;
        AfterExit expected;
    };
    for (const Row& row : {
             Row{S2ChildPhase::loading, 0, {Action::fail, 0}},
             Row{S2ChildPhase::loading, 2, {Action::fail, 2}},
             Row{S2ChildPhase::ready, 0, {Action::restart, 1}},
             Row{S2ChildPhase::ready, 2, {Action::restart, 3}},
             Row{S2ChildPhase::ready, 3, {Action::fail, 3}},
             Row{S2ChildPhase::ready, 4, {Action::fail, 4}},
         })
        EXPECT_EQ(afterExit(row.phase, row.restarts, 3), row.expected) << row.restarts;
}

TEST(S2Policy, tellsPeopleWhatAnExitDuringTheLoadSuggests) {
    const auto sentence = [](ExitCause cause, int number) {
        return loadExitSentence({cause, number}, "/l/s2.log");
    };
    EXPECT_EQ(sentence(ExitCause::killed, SIGKILL),
              "the inference process exited (signal 9): not enough memory to start the engine., "
              "log /l/s2.log");
    EXPECT_EQ(sentence(ExitCause::exited, 3),
              "the inference process exited (signal 3): (empty), log /l/s2.log");
    EXPECT_EQ(exitHint({ExitCause::illegalInstruction, SIGILL}).find("this PC's CPU"), 0U);
    EXPECT_EQ(exitHint({ExitCause::busError, SIGBUS}),
              "the engine hit an access violation (the model file may be corrupt).");
    EXPECT_EQ(exitHint({ExitCause::segmentationFault, SIGSEGV}),
              exitHint({ExitCause::busError, SIGBUS}));
    EXPECT_EQ(exitHint({ExitCause::aborted, SIGABRT}),
              "引擎主动中止了(多半是某个算子这个后端没实现)。看引擎日志的最后几行。");
    EXPECT_EQ(exitHint({ExitCause::otherSignal, SIGTERM}), "");
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

    struct Row {
        ComputeBackend compute;
        std::int64_t layers;
        bool gpu;
        Words expected;
    };
    for (const Row& row : {
             Row{ComputeBackend::auto_, 0, true, {"-M", "-ngl", "0", "--codec-cpu"}},
             Row{ComputeBackend::metal, 12, true, {"-M", "-ngl", "12", "--codec-cpu"}},
             Row{ComputeBackend::metal, 12, false, {"-ngl", "0", "--codec-cpu"}},
             Row{ComputeBackend::cpu, 12, true, {"-ngl", "0", "--codec-cpu"}},
         }) {
        EngineOptions with;
        with.compute = row.compute;
        with.gpuLayers = row.layers;
        const Words words = s2Arguments({"/e/s2", "/m", ""}, with, 1, row.gpu);
        EXPECT_EQ(Words(words.begin() + 7, words.end()), row.expected);
    }
}

int numberOf(const std::optional<S2Port>& port) {
    return port ? port->number : 0;
}

TEST(S2Policy, takesTheFirstPortOnWhichNobodyAnswers) {
    S2Tuning tuning;
    tuning.firstPort = test::findFreePorts(2);
    tuning.lastPort = tuning.firstPort + 1;
    {
        // Taken but not answered: the test is a connect, not a bind.
        const test::TakenPort mute(tuning.firstPort, false);
        EXPECT_EQ(numberOf(pickS2Port(tuning)), tuning.firstPort);
    }
    const test::TakenPort first(tuning.firstPort, true);
    EXPECT_EQ(numberOf(pickS2Port(tuning)), tuning.lastPort);
    const test::TakenPort second(tuning.lastPort, true);
    EXPECT_EQ(numberOf(pickS2Port(tuning)), 0);
}

TEST(S2Policy, givesEachOfThoseWhoPickAtOnceAPortOfItsOwn) {
    constexpr int services = 8;
    S2Tuning tuning;
    tuning.firstPort = test::findFreePorts(services);
    tuning.lastPort = tuning.firstPort + services - 1;
    std::vector<std::optional<S2Port>> picked(services);
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
    for (const auto& [bytes, name] : std::vector<std::pair<std::string, std::string>>{
             {"\xFF\xFB\x90\x64 frames", "reference.mp3"},
             {"ID3\x04 and more", "reference.mp3"},
             {"RIFF\xFF\xFB\x90\x64 a wav", "reference.wav"},
             {"neither", "reference.wav"},
         }) {
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
    const std::optional<Json> json = parseJsonObject(samplingJson(params));
    ASSERT_TRUE(json);
    EXPECT_EQ(jInt(&*json, "seed", 0), 9);
}

TEST(S2Form, hasABoundaryOfItsOwn) {
    const std::string one = makeBoundary();
    EXPECT_NE(one, makeBoundary());
    ASSERT_EQ(one.size(), 9U + 32U);
    EXPECT_EQ(one.substr(0, 9), "----ZEPHO");
    EXPECT_EQ(one.find_first_not_of("0123456789ABCDEF", 9), std::string::npos);
}

}  // namespace
}  // namespace zepho
