// A cache directory as a long-lived service leaves it, for the measuring programs.
//
// The clips are hard links to one file: only their names matter.
#pragma once

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
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
        CacheRecord record;
        record.key = sha256Utf8("clip " + std::to_string(number));
        record.entry.fileName = record.key + ".wav";
        record.entry.voiceId = "8f14e45fceea167a5a36dedd4bea2543";
        record.entry.text = "Passengers of flight " + std::to_string(number) +
                            " to Osaka are kindly asked to proceed to gate 42 immediately.";
        record.entry.language = "en";
        record.entry.sampleRate = 44100;
        record.entry.durationMs = 5000 + number;
        record.entry.bytes = 441044;
        if (number % linksEach == 0) {
            first = dir + record.entry.fileName;
            std::ofstream(first) << "clip";
        } else {
            std::filesystem::create_hard_link(first, dir + record.entry.fileName);
        }
        records.push_back(std::make_shared<const CacheRecord>(std::move(record)));
    }
    saveCacheIndex(dir + "index.json", std::move(records));
}

}  // namespace zepho
