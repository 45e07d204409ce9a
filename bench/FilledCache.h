// A cache directory as a long-lived service leaves it, for the measuring programs.
//
// The clips are hard links to one file: only their names matter.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "core/base/Hash.h"
#include "core/store/CacheIndex.h"

namespace zepho {

inline void fillCacheDirectory(const std::string& dir, int clips) {
    std::filesystem::create_directories(dir);
    std::vector<CacheRecordPointer> records;
    std::string first;
    // A file system limits the links to one file.
    constexpr int linksEach = 20000;
    for (int number = 0; number < clips; ++number) {
        const std::string key = sha256Utf8("clip " + std::to_string(number));
        CacheEntry entry;
        entry.fileName = key + ".wav";
        entry.voiceId = "8f14e45fceea167a5a36dedd4bea2543";
        entry.text = "Passengers of flight " + std::to_string(number) +
                     " to Osaka are kindly asked to proceed to gate 42 immediately.";
        entry.language = "en";
        entry.sampleRate = 44100;
        entry.durationMs = 5000 + number;
        entry.bytes = 441044;
        if (number % linksEach == 0) {
            first = dir + entry.fileName;
            std::ofstream(first) << "clip";
        } else {
            std::filesystem::create_hard_link(first, dir + entry.fileName);
        }
        records.push_back(makeCacheRecord(key, entry));
    }
    saveCacheIndex(dir + "index.json", records);
}

}  // namespace zepho
