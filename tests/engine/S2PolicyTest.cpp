// The parts of the supervision without a child: its port, its command line, the request body.
#include <set>
#include <thread>

#include <gtest/gtest.h>

#include "core/engine/S2Form.h"
#include "core/engine/S2Process.h"
#include "core/platform/TaskQueue.h"
#include "core/platform/Tcp.h"
#include "tests/engine/S2TestSupport.h"

namespace zepho {
namespace {

using Words = std::vector<std::string>;

TEST(S2Policy, buildsTheCommandLineInOrder) {
    EngineOptions options;
    EXPECT_EQ(s2Arguments({"/e/s2", "/m/a.gguf", "/m/tokenizer.json"}, options, 17152, false),
              (Words{"--model", "/m/a.gguf", "--server", "--host", "127.0.0.1", "--port", "17152",
                     "--tokenizer", "/m/tokenizer.json", "-ngl", "0", "--codec-cpu"}));
    const S2Files files{"/e/s2", "/m", ""};
    const auto restOf = [&](bool gpu) {
        Words words = s2Arguments(files, options, 3, gpu);
        words.erase(words.begin(), words.begin() + 7);
        return words;
    };
    options.threads = 4;
    options.gpuLayers = -1;
    options.extraArgs = "  --a   b c=\"d e\" ";
    EXPECT_EQ(restOf(true), (Words{"-M", "-ngl", "99", "--codec-cpu", "-threads", "4", "--a", "b",
                                   "c=\"d", "e\""}));
    options = {};
    options.gpuLayers = 12;
    const Words none{"-ngl", "0", "--codec-cpu"};
    options.compute = ComputeBackend::metal;
    EXPECT_EQ(restOf(true), (Words{"-M", "-ngl", "12", "--codec-cpu"}));
    EXPECT_EQ(restOf(false), none);
    options.compute = ComputeBackend::cpu;
    EXPECT_EQ(restOf(true), none);
}

TEST(S2Policy, givesEachOfThoseWhoPickAtOnceAPortOnWhichNobodyAnswers) {
    S2Tuning tuning;
    tuning.firstPort = test::findFreePorts(8);
    tuning.lastPort = tuning.firstPort + 7;
    TaskQueue queue("test");
    const TcpListener answered(queue, "127.0.0.1", static_cast<std::uint16_t>(tuning.firstPort));
    std::vector<std::optional<S2Port>> picked(7);
    std::vector<std::thread> threads;
    for (std::optional<S2Port>& one : picked)
        threads.emplace_back([&one, &tuning] { one = pickS2Port(tuning); });
    for (std::thread& thread : threads) thread.join();
    std::set<int> numbers;
    for (const std::optional<S2Port>& one : picked)
        if (one) numbers.insert(one->number);
    EXPECT_EQ(numbers.size(), picked.size());
    EXPECT_EQ(numbers.count(tuning.firstPort), 0U);
    EXPECT_FALSE(pickS2Port(tuning));
    picked[3].reset();
    EXPECT_TRUE(pickS2Port(tuning));
}

std::string bodyOf(const S2Params& params) {
    return std::string(asText(buildGenerateForm(params, "----ZEPHO1").body));
}

TEST(S2Form, isTheSameByteForByte) {
    S2Params params;
    params.text = " [calm] 你好 ";
    params.referenceAudio = toBytes("RIFFbytes\xFF\xFB\r\n");
    params.maxNewTokens = 77;
    // Floats as they were typed.
    params.temperature = 0.7F;
    params.topP = 0.123456F;
    params.topK = 3;
    params.repetitionPenalty = 1.1F;
    EXPECT_EQ(samplingJson(params).find("seed"), std::string::npos);
    params.seed = -5;
    const auto field = [](const std::string& name, const std::string& value) {
        return "------ZEPHO1\r\nContent-Disposition: form-data; name=\"" + name +
               "\"\r\nContent-Type: text/plain; charset=utf-8\r\n\r\n" + value + "\r\n";
    };
    const std::string begin = field("text", " [calm] 你好 ") +
                              field("params",
                                    "{\"max_new_tokens\":77,\"repetition_penalty\":1.1,\"seed\":-5,"
                                    "\"temperature\":0.7,\"top_k\":3,\"top_p\":0.1235}");
    const std::string end = "------ZEPHO1--\r\n";
    EXPECT_EQ(bodyOf(params),
              begin +
                  "------ZEPHO1\r\nContent-Disposition: form-data; name=\"reference\"; "
                  "filename=\"reference.wav\"\r\nContent-Type: application/octet-stream\r\n\r\n"
                  "RIFFbytes\xFF\xFB\r\n\r\n" +
                  field("reference_text", "") + end);
    params.voiceProfile = "/v/p.bin";
    EXPECT_EQ(bodyOf(params), begin + field("voice", "/v/p.bin") + end);
    params.voiceProfile.clear();
    params.referenceAudio = {};
    EXPECT_EQ(bodyOf(params), begin + end);

    for (const char* mp3 : {"\xFF\xFB\x90\x64 frames", "ID3\x04 and more"}) {
        params.referenceAudio = toBytes(mp3);
        EXPECT_NE(bodyOf(params).find("filename=\"reference.mp3\""), std::string::npos) << mp3;
    }
}

}  // namespace
}  // namespace zepho
