// Writes the clips of HostileClips.h into a directory, for tests that hand them to a live service.
#include <iostream>

#include "core/platform/Files.h"
#include "tests/tools/HostileClips.h"

int main(int count, char** words) {
    if (count != 2) return 2;
    int number = 0;
    for (const auto& clips : {zepho::test::hostileOggClips(), zepho::test::hostileMp3Clips()})
        for (const auto& clip : clips)
            zepho::saveFileBytes(std::string(words[1]) + "/clip-" + std::to_string(number++),
                                 clip.bytes);
    std::cout << number << " clips\n";
    return number > 0 ? 0 : 1;
}
