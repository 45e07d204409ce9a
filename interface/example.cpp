// Speaks a line into a file, and tells how the service is.
//
//     example http://127.0.0.1:17150 "Flight CA 981 is now boarding at gate 4." out.wav
#include <cstdio>
#include <fstream>
#include <string>

#include "zephon_client.h"

int main(int count, char** words) {
    if (count != 4) {
        std::fprintf(stderr, "usage: %s http://host:port \"text\" out.wav\n", words[0]);
        return 2;
    }
    zephon::Client client(words[1]);

    const zephon::Result<zephon::Health> health = client.health();
    if (!health) {
        std::fprintf(stderr, "%s\n", health.error.message.c_str());
        return 1;
    }
    std::printf("Zephon %s is %s\n", health.value.version.c_str(), health.value.status.c_str());

    zephon::Line line;
    line.text = words[2];
    line.language = "en";
    line.gender = "female";
    const zephon::Result<zephon::Clip> clip = client.speak(line);
    if (!clip) {
        std::fprintf(stderr, "%s: %s\n", clip.error.word.c_str(), clip.error.message.c_str());
        return 1;
    }
    std::ofstream file(words[3], std::ios::binary);
    file.write(reinterpret_cast<const char*>(clip.value.wav.data()),
               static_cast<std::streamsize>(clip.value.wav.size()));
    if (!file.flush()) {
        std::fprintf(stderr, "cannot write %s\n", words[3]);
        return 1;
    }
    std::printf("%.1f s of audio by voice %s, from the %s\n",
                static_cast<double>(clip.value.durationMs) / 1000, clip.value.voice.c_str(),
                clip.value.cacheHit ? "cache" : "engine");

    // The same line again: the service only confirms that our clip is still right.
    const zephon::Result<zephon::Clip> again = client.speak(line, clip.value.etag);
    std::printf("%s\n", again && again.value.notModified ? "unchanged" : "changed");
    return 0;
}
