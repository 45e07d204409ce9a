#include "core/engine/S2Exchange.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "core/audio/WavReader.h"
#include "core/base/TtsError.h"
#include "core/diag/AppLog.h"
#include "core/diag/Language.h"
#include "core/engine/S2Form.h"
#include "core/platform/Unicode.h"

namespace zepho {
namespace {

using std::chrono::milliseconds;

// Far above the longest line; a process that sends more is not answering.
constexpr std::size_t maxWavBytes = 256UL << 20;
// What is told of an error; an honest one is a sentence.
constexpr std::size_t mostOfError = 4096;
// Keeps the sum of a clock and a setting in range.
constexpr std::int64_t longestMs = 366LL * 24 * 3600 * 1000;

[[noreturn]] void throwStillBusy() {
    throw TtsError(TtsErrorCode::timeout, T("推理进程一直在忙 —— 它一次只算一句,前一句还没算完。") +
                                              "\n" +
                                              T("等它算完再试,或者把「设置」里的合成超时调大。"));
}

[[noreturn]] void throwTransportFailure(const HttpReply& response, const S2ExchangePlan& plan,
                                        const S2ExchangeWorld& world) {
    // A connection breaks a moment before the end of the process shows. Only a time-out says
    // nothing about an end.
    const milliseconds grace =
        response.failure == HttpFailure::transport ? plan.tuning.exitGrace : milliseconds(0);
    if (!world.childEnds(grace))
        throw TtsError(
            TtsErrorCode::engineFailed,
            TF("跟推理进程通信失败:%@(日志 %@)", replaceInvalidUtf8(response.error), plan.logPath));
    world.childGone();
    throw TtsError(TtsErrorCode::engineNotConnected,
                   T("推理进程不在了(崩了或被结束),正在自动重启,过几秒再试。") + "\n" +
                       TF("原因看 %@", plan.logPath));
}

PcmBuffer pcmOf(const Bytes& body) {
    std::optional<ParsedWav> wav = parseWavWithFormat(body);
    if (!wav)
        throw TtsError(TtsErrorCode::engineFailed,
                       TF("推理进程返回的 %d 字节不是能识别的 WAV", body.size()));
    return std::move(wav->pcm);
}

HttpCall requestFor(const S2ExchangePlan& plan, const MultipartForm& form) {
    HttpCall request;
    request.method = "POST";
    request.url = "http://127.0.0.1:" + std::to_string(plan.port) + "/generate";
    request.headers = {"Content-Type: multipart/form-data; boundary=" + form.boundary};
    request.body = form.body;
    request.maxResponseBytes = maxWavBytes;
    request.direct = true;
    return request;
}

}  // namespace

PcmBuffer exchangeLine(const S2Params& params, const S2ExchangePlan& plan,
                       const S2ExchangeWorld& world) {
    const MultipartForm form = buildGenerateForm(params, makeBoundary());
    HttpCall request = requestFor(plan, form);
    const auto deadline =
        world.now() + milliseconds(std::clamp<std::int64_t>(plan.timeoutMs, 0, longestMs));
    const milliseconds atLeast = plan.tuning.lastAttempt;
    const milliseconds atMost =
        std::max(atLeast, milliseconds(std::min(plan.attemptLimitMs, longestMs)));
    for (bool first = true;; first = false) {
        const auto left = std::chrono::ceil<milliseconds>(deadline - world.now());
        request.timeout = std::clamp(left, atLeast, atMost);
        request.connectTimeout = request.timeout;
        const HttpReply response = world.send(request);
        if (response.failure != HttpFailure::none) throwTransportFailure(response, plan, world);
        if (response.status == 200) return pcmOf(response.body);
        if (response.status != 503)
            throw TtsError(TtsErrorCode::engineFailed,
                           TF("推理进程返回 %d:%@", response.status,
                              replaceInvalidUtf8(asText(response.body).substr(0, mostOfError))));
        if (!world.childRuns() || world.now() >= deadline) throwStillBusy();
        if (first)
            AppLog::info("s2",
                         "engine busy with an earlier request; waiting for it (this happens after "
                         "a synthesis we gave up on keeps running)");
        world.sleep(plan.tuning.busyWait);
    }
}

}  // namespace zepho
