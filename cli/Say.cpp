// zephonctl say: a line into a file, to stdout, or to the loudspeaker.
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <system_error>

#include <nlohmann/json.hpp>

#include "cli/Commands.h"
#include "core/platform/Bytes.h"
#include "core/platform/Errors.h"
#include "core/platform/Files.h"
#include "core/platform/Process.h"
#include "core/platform/Uuid.h"

namespace zephonctl {
namespace {

volatile std::sig_atomic_t interrupted = 0;

void interrupt(int /*signal*/) {
    interrupted = 1;
}

// The program's path; empty where there is none of that name.
std::string onPath(const std::string& name) {
    const char* const path = std::getenv("PATH");
    std::string_view rest = path == nullptr ? "" : path;
    while (!rest.empty()) {
        const std::string_view folder = rest.substr(0, rest.find(':'));
        rest.remove_prefix(std::min(rest.size(), folder.size() + 1));
        std::string candidate = zepho::withTrailingSlash(std::string(folder)) + name;
        if (!folder.empty() && zepho::fileExists(candidate)) return candidate;
    }
    return {};
}

// A WAV that is there for the player, and gone afterwards.
class PlayedFile {
public:
    explicit PlayedFile(const zephon::Bytes& wav)
        : path(std::filesystem::temp_directory_path() /
               ("zephonctl-" + std::to_string(zepho::Uuid::make().high) + ".wav")) {
        zepho::saveFileBytes(path, wav);
    }
    PlayedFile(const PlayedFile&) = delete;
    PlayedFile& operator=(const PlayedFile&) = delete;
    ~PlayedFile() {
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
    }
    const std::string path;
};

void play(const zephon::Bytes& wav) {
    std::string player;
    for (const char* name : {"pw-play", "paplay", "aplay"})
        if (player = onPath(name); !player.empty()) break;
    if (player.empty())
        throw Failure{outputFailed,
                      "nothing here plays a WAV (pw-play, paplay or aplay); give a file with -o"};
    const PlayedFile file(wav);
    // The player is a process group of its own, so an interrupt from the keyboard is passed on.
    std::signal(SIGINT, interrupt);
    std::signal(SIGTERM, interrupt);
    const auto process = zepho::Process::spawn({player, {file.path}, {}, {}});
    while (!process->waitForExit(std::chrono::milliseconds(200), std::chrono::milliseconds(20)))
        if (interrupted != 0) process->killGroup();
    const auto exit = process->exitStatus();
    if (interrupted != 0) throw Failure{outputFailed, "interrupted"};
    if (!exit || exit->cause != zepho::ExitCause::exited || exit->number != 0)
        throw Failure{outputFailed, player + " could not play the clip"};
}

void put(const zephon::Bytes& wav, const std::string& output) {
    if (output == "-") {
        std::cout.write(reinterpret_cast<const char*>(wav.data()),
                        static_cast<std::streamsize>(wav.size()));
        if (!std::cout.flush()) throw Failure{outputFailed, "cannot write to stdout"};
        return;
    }
    try {
        if (output.empty())
            play(wav);
        else
            zepho::saveFileBytes(std::filesystem::absolute(output), wav);
    } catch (const std::system_error& failure) {
        throw Failure{outputFailed, zepho::describeError(failure)};
    }
}

}  // namespace

int say(const Common& common, SayOptions options) {
    if (common.json && options.output == "-")
        throw Failure{wrongUsage, "--json and -o - both want stdout"};
    if (options.line.text == "-") options.line.text = readInput("-");
    zephon::Client client = common.onlyClient();
    const zephon::Clip clip =
        valueOf(client.speak(options.line, options.heldTag), common.urls.front());
    if (!clip.notModified) put(clip.wav, options.output);
    if (common.json) {
        const nlohmann::json told = {{"not_modified", clip.notModified},
                                     {"etag", clip.etag},
                                     {"engine", clip.engine},
                                     {"voice", clip.voice},
                                     {"sample_rate", clip.sampleRate},
                                     {"duration_ms", clip.durationMs},
                                     {"synth_ms", clip.synthMs},
                                     {"cache", clip.cacheHit ? "hit" : "miss"},
                                     {"bytes", clip.wav.size()},
                                     {"file", options.output}};
        std::cout << told.dump() << std::endl;
    } else if (clip.notModified) {
        std::cerr << "not modified\n";
    } else {
        std::cerr << (options.output.empty() ? "played" : options.output) << ": "
                  << static_cast<double>(clip.durationMs) / 1000 << " s, " << clip.sampleRate
                  << " Hz, voice " << clip.voice << ", "
                  << (clip.cacheHit ? "from the cache" : "spoken by " + clip.engine) << '\n';
    }
    return done;
}

}  // namespace zephonctl
