// One line through the engine's protocol, with texts and answers of any kind. The form that goes out
// reads back part by part, whatever stands in the texts; an answer becomes audio or an error with
// words, and the exchange ends within its time.
#include <deque>
#include <string>

#include "core/base/TtsError.h"
#include "core/diag/AppLog.h"
#include "core/engine/S2Exchange.h"
#include "core/engine/S2Form.h"
#include "core/platform/Require.h"
#include "core/platform/Unicode.h"
#include "fuzz/Slices.h"

namespace {

using namespace zepho;
using std::chrono::milliseconds;

// Takes the next part off the front; checks its name and gives its content.
std::string_view takePart(std::string_view& body, const std::string& boundary,
                          std::string_view name) {
    const std::string begin =
        "--" + boundary + "\r\nContent-Disposition: form-data; name=\"" + std::string(name) + "\"";
    require(body.starts_with(begin), "another part");
    const std::size_t content = body.find("\r\n\r\n");
    require(content != std::string_view::npos, "a part without a content");
    body.remove_prefix(content + 4);
    const std::size_t end = body.find("\r\n--" + boundary);
    require(end != std::string_view::npos, "a part without an end");
    const std::string_view taken = body.substr(0, end);
    body.remove_prefix(end + 2);
    return taken;
}

void checkForm(const S2Params& params, const HttpCall& call) {
    constexpr std::string_view mark = "boundary=";
    const std::string& type = call.headers.front();
    const std::string boundary = type.substr(type.find(mark) + mark.size());
    std::string_view body = asText(call.body);
    require(takePart(body, boundary, "text") == params.text, "another text");
    require(takePart(body, boundary, "params") == samplingJson(params), "other parameters");
    if (!params.voiceProfile.empty()) {
        require(takePart(body, boundary, "voice") == params.voiceProfile, "another voice");
    } else if (!params.referenceAudio.empty()) {
        require(takePart(body, boundary, "reference") == asText(params.referenceAudio.view()),
                "another clip");
        require(takePart(body, boundary, "reference_text") == params.referenceText,
                "another transcript");
    }
    require(body == "--" + boundary + "--\r\n", "something behind the last part");
}

HttpReply replyFrom(fuzz::Slices& slices) {
    HttpReply reply;
    constexpr int statuses[] = {200, 200, 503, 503, 500, 404, 0, 302};
    const std::uint8_t kind = slices.byte();
    if (kind >= 0xF0) {
        reply.failure = kind % 2 == 0 ? HttpFailure::transport : HttpFailure::timedOut;
        reply.error = slices.text();
        return reply;
    }
    reply.status = statuses[kind % 8];
    const ByteView body = slices.bytes(std::size_t{slices.byte()} * 4);
    reply.body = Bytes(body.begin(), body.end());
    return reply;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Slices slices(data, size);
    S2Params params;
    params.text = slices.text();
    params.referenceText = slices.text();
    params.voiceProfile = slices.byte() % 4 == 0 ? slices.text() : std::string_view();
    const ByteView clip = slices.bytes(slices.byte());
    params.referenceAudio = Bytes(clip.begin(), clip.end());
    params.seed = slices.byte();

    S2ExchangePlan plan;
    plan.timeoutMs = 1000 * slices.byte();
    plan.attemptLimitMs = 60000;
    plan.logPath = "/log";
    S2ExchangeWorld::Clock::time_point clock{};
    const auto begin = clock;
    bool lives = slices.byte() % 2 == 0;
    int gone = 0;
    S2ExchangeWorld world;
    world.send = [&](const HttpCall& call) {
        checkForm(params, call);
        clock += milliseconds(slices.byte());
        require(call.timeout.count() > 0, "an attempt without time");
        return replyFrom(slices);
    };
    world.now = [&] { return clock; };
    world.sleep = [&](milliseconds time) { clock += time; };
    world.childRuns = [&] { return lives; };
    world.childEnds = [&](milliseconds) { return !lives; };
    world.childGone = [&] { ++gone; };
    try {
        const PcmBuffer pcm = exchangeLine(params, plan, world);
        require(!pcm.data.empty() && pcm.sampleRate > 0, "an answer without audio");
    } catch (const TtsError& error) {
        require(!error.message.empty() && error.code != TtsErrorCode::none, "no words");
        require(isValidUtf8(error.message), "words that are no text");
        require(gone <= 1 && (gone == 0 || !lives), "a child gone that lives");
    }
    require(
        clock - begin <= milliseconds(plan.timeoutMs) + plan.tuning.busyWait + milliseconds(512),
        "longer than its time");
    return 0;
}
