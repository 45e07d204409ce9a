#include "core/audio/DecoderHelper.h"

#include <array>
#include <limits>
#include <utility>
#include <vector>

#include "core/audio/DecoderReply.h"
#include "core/audio/SampleKernels.h"
#include "core/diag/AppLog.h"
#include "core/platform/PlatformPaths.h"
#include "core/platform/SandboxedRun.h"

namespace zepho {
namespace {

constexpr int decoded = 1;
// Room for the samples of most clips. What is not written to costs nothing.
constexpr std::size_t usualClip = std::size_t{1} << 20;

const char* nameOf(DecoderEntry entry) {
    return entry == DecoderEntry::mp3 ? "mp3" : "ogg";
}

void warn(DecoderEntry entry, const std::string& what) {
    AppLog::warn("voices", std::string("the decoder of ") + nameOf(entry) + " clips " + what);
}

// Takes over the blocks up to their end. False where they go on beyond any clip, or break off.
bool readBlocks(std::vector<float>& samples, RunOutput& output) {
    std::array<float, decoderBlockSize> block;
    samples.reserve(usualClip);
    for (std::uint32_t before = block.size();;) {
        std::uint32_t count = 0;
        if (!output.read(&count, sizeof count)) return false;
        if (count == 0) return true;
        // Only the last one may be short, so that there are not millions of them.
        if (std::exchange(before, count) != block.size() || count > block.size() ||
            samples.size() + count > largestClipBytes / sizeof(float) ||
            !output.read(block.data(), count * sizeof(float)))
            return false;
        // Nothing downstream could play these, and a taken-over helper may well send them.
        silenceNonSamples(block.data(), count);
        samples.insert(samples.end(), block.data(), block.data() + count);
    }
}

// Nothing if the helper's answer makes no sense.
std::optional<DecodedClip> readReply(RunOutput& output) {
    PcmBuffer pcm;
    DecoderReply facts;
    if (!readBlocks(pcm.data, output) || !output.read(&facts, sizeof facts) || !output.ended() ||
        facts.form != decoderReplyForm)
        return std::nullopt;
    DecodedClip clip{facts.status, std::nullopt};
    if (facts.status != decoded) return clip;
    if (facts.rate < 1 || facts.rate > std::numeric_limits<int>::max() || facts.frames < 1 ||
        facts.frames != pcm.data.size() || facts.frames > longestClipSeconds * facts.rate)
        return std::nullopt;
    pcm.sampleRate = static_cast<int>(facts.rate);
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
    const Turn turn(*this);
    if (!turn.isGranted()) {
        warn(entry, "was busy with other clips for too long");
        return {};
    }
    std::optional<DecodedClip> clip;
    const std::string problem =
        runOnBytes(path, {nameOf(entry)}, bytes, bounds.deadline,
                   [&clip](RunOutput& output) { clip = readReply(output); });
    if (!problem.empty()) {
        warn(entry, problem);
        return {};
    }
    if (!clip) warn(entry, "gave an answer that makes no sense");
    return std::move(clip).value_or(DecodedClip{});
}

}  // namespace zepho
