// Clone packs: voices with their clips and transcripts, and the bindings that lead to them, in one
// .cln file that another machine can import.
//
// Free functions on the caller's thread; export compresses on two more meanwhile. They use the locks
// of VoiceLibrary and AppConfig through their operations and hold none across file work.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zepho {

class AppConfig;
class VoiceLibrary;

// What an export or an import did.
struct PackSummary {
    int voices = 0;          // written, or met on import
    int voicesAdded = 0;     // new on import
    int voicesReused = 0;    // already there on import
    int bindings = 0;        // written or taken over
    int clips = 0;           // written or read
    std::int64_t bytes = 0;  // size of those clips
    // What went wrong on the way, for the person; of very many the first, and how many more.
    std::vector<std::string> notes;

    // The counters in one line and each note on one more, in the interface language.
    [[nodiscard]] std::string describe() const;
};

// Writes the voices of these bindings ("CA:zh:female"), each once, and the bindings. Throws
// std::system_error if the file cannot be written or would be larger than an import accepts; no part
// of it is left behind then.
PackSummary exportPack(const std::string& to, const std::vector<std::string>& airlineKeys,
                       const VoiceLibrary& voices, const AppConfig& config);
// The same for voices alone.
PackSummary exportVoicePack(const std::string& to, const std::vector<std::string>& voiceIds,
                            const VoiceLibrary& voices);

// 64 hexadecimal digits that stand for what a pack of these would hold: the same for the same voices
// on another machine, at another time, and in another order of selection.
[[nodiscard]] std::string packFingerprint(const std::vector<std::string>& voiceIds,
                                          const std::vector<std::string>& airlineKeys,
                                          const VoiceLibrary& voices, const AppConfig& config);

// Takes over the voices that are not yet there (display, language and gender tell) and the pack's
// bindings. What is wrong with one voice becomes a note. Throws TtsError, with nothing changed, if
// the file is no pack.
PackSummary importPack(const std::string& from, VoiceLibrary& voices, AppConfig& config);

}  // namespace zepho
