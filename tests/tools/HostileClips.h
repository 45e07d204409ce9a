// Makes clips that attack a decoder: valid enough to be let in, and absurd further on.
//
// The same calls give the same bytes on every machine. No real encoder is needed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/platform/Bytes.h"

namespace zepho::test {

struct HostileClip {
    std::string name;  // what it tries
    Bytes bytes;
};

std::vector<HostileClip> hostileOggClips();
std::vector<HostileClip> hostileMp3Clips();

// A good file cut short at `count` places and with bits turned over in `count` ways.
std::vector<HostileClip> damagedClips(const std::string& name, ByteView good, int count);

}  // namespace zepho::test
