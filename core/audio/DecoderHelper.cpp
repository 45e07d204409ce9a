#include "core/audio/DecoderHelper.h"

#include <limits>
#include <utility>

#include "core/audio/DecoderReply.h"
#include "core/audio/SampleKernels.h"
#include "core/diag/AppLog.h"
#include "core/platform/PlatformPaths.h"
#include "core/platform/SandboxedRun.h"

namespace zepho {
namespace {

constexpr int decoded = 1;

const char* nameOf(DecoderEntry entry) {
    return entry == DecoderEntry::mp3 ? "mp3" : "ogg";
}

void warn(DecoderEntry entry, const std::string& what) {
    AppLog::warn("voices", std::string("the decoder of ") + nameOf(entry) + " clips " + what);
}

bool samplesFit(const DecoderReply& head, const RunOutput& output) {
    return head.rate >= 1 && head.rate <= std::numeric_limits<int>::max() && head.frames >= 1 &&
           head.frames <= longestClipSeconds * head.rate &&
           head.frames <= largestClipBytes / sizeof(float) &&
           output.size() == sizeof head + head.frames * sizeof(float);
}

// Nothing if the helper's answer makes no sense.
std::optional<DecodedClip> readReply(const RunOutput& output) {
    DecoderReply head;
    if (!output.read(0, &head, sizeof head) || head.form != decoderReplyForm) return std::nullopt;
    DecodedClip clip{head.status, std::nullopt};
    if (head.status != decoded) return clip;
    if (!samplesFit(head, output)) return std::nullopt;

    PcmBuffer pcm;
    pcm.sampleRate = static_cast<int>(head.rate);
    pcm.data.resize(head.frames);
    if (!output.read(sizeof head, pcm.data.data(), head.frames * sizeof(float)))
        return std::nullopt;
    // Nothing downstream could play these, and a taken-over helper may well send them.
    silenceNonNumbers(pcm.data.data(), pcm.data.size());
    clip.pcm = std::move(pcm);
    return clip;
}

}  // namespace

// The right to run one helper, waited for within bounds.
class DecoderHelper::Turn {
public:
    explicit Turn(DecoderHelper& helper) : owner(helper) {
        std::unique_lock held(owner.lock);
        granted =
            owner.ended.wait_until(held, std::chrono::steady_clock::now() + owner.bounds.patience,
                                   [this] { return owner.running < owner.bounds.atOnce; });
        if (granted) ++owner.running;
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn() {
        if (!granted) return;
        {
            const std::lock_guard held(owner.lock);
            --owner.running;
        }
        owner.ended.notify_one();
    }

    [[nodiscard]] bool isGranted() const { return granted; }

private:
    DecoderHelper& owner;
    bool granted = false;
};

DecoderHelper::DecoderHelper(std::string program, DecoderHelperLimits limits)
    : path(std::move(program)), bounds(limits) {}

DecoderHelper& DecoderHelper::shared() {
    static DecoderHelper helper(helperProgram("zephon-decode"));
    return helper;
}

DecodedClip DecoderHelper::decode(DecoderEntry entry, ByteView bytes) {
    if (bytes.empty()) return {};
    RunResult run;
    {
        const Turn turn(*this);
        if (!turn.isGranted()) {
            warn(entry, "was busy with other clips for too long");
            return {};
        }
        run = runOnBytes(path, {nameOf(entry)}, bytes, bounds.deadline);
    }
    if (!run.problem.empty()) {
        warn(entry, run.problem);
        return {};
    }
    std::optional<DecodedClip> clip = readReply(run.output);
    if (!clip) warn(entry, "gave an answer that makes no sense");
    return std::move(clip).value_or(DecodedClip{});
}

}  // namespace zepho
