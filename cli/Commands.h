// The commands of zephonctl, and what they share.
//
// A command is a plain function on the main thread: options in, exit code out. Results go to stdout,
// everything else to stderr.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "interface/zephon_client.h"

namespace zephonctl {

// Documented in zephonctl(1); scripts depend on them.
enum ExitCode {
    done = 0,
    notInOrder = 1,   // degraded health, a failed self test, lines that could not be baked
    wrongUsage = 2,   // arguments, or a file that is given with them
    unreachable = 3,  // nobody answers at the address
    tooSlow = 4,      // the time is over
    refused = 5,      // the service answered with an error
    brokenReply = 6,  // the answer was cut off, or is not that of the service
    outputFailed = 7  // a file could not be written, or the clip not be played
};

struct Common {
    std::vector<std::string> urls;
    bool json = false;
    double timeoutSeconds = 600;

    [[nodiscard]] zephon::Client client(const std::string& url) const;
    // For commands that speak to one service. Several addresses are wrong usage.
    [[nodiscard]] zephon::Client onlyClient() const;
};

// Ends the command from any depth; main() prints the text and returns the code.
struct Failure {
    ExitCode code;
    std::string text;
};

// The value, or a Failure that tells where the error came from.
[[nodiscard]] Failure failureOf(const zephon::Error& error, const std::string& url);
template <class T>
[[nodiscard]] T valueOf(zephon::Result<T> result, const std::string& url) {
    if (!result) throw failureOf(result.error, url);
    return std::move(result.value);
}

struct SayOptions {
    zephon::Line line;
    std::string output;  // "-" is stdout; empty plays the clip
    std::string heldTag;
};
int say(const Common& common, SayOptions options);

struct PrebakeOptions {
    std::string file;     // "-" is stdin
    zephon::Line preset;  // for what the table does not tell
    std::size_t batch = 100;
    double intervalSeconds = 0.5;
    std::vector<std::string> nodes;  // where pending lines are counted; empty is the address itself
};
int prebake(const Common& common, const PrebakeOptions& options);

int listVoices(const Common& common);
int removeVoice(const Common& common, const std::string& voice);

struct CloneOptions {
    zephon::CloneOrder order;
    std::vector<std::string> clips;
    std::vector<std::string> texts;
    std::string airline;  // is bound at once
};
int clone(const Common& common, CloneOptions options);

struct BindOptions {
    std::string airline;  // empty is the default voice
    std::string language;
    std::string gender;
    std::string voice;  // id or display name
    bool isDefault = false;
    bool remove = false;
};
int bind(const Common& common, const BindOptions& options);

int importPack(const Common& common, const std::string& file);
struct ExportOptions {
    std::string file;
    std::string dataRoot;
    std::vector<std::string> voices;
};
int exportPack(const Common& common, const ExportOptions& options);

int health(const Common& common);
int selfTest(const Common& common, const zephon::Line& line);
struct StatsOptions {
    double watchSeconds = 0;  // 0 is once
    long count = 0;           // 0 is until interrupted
};
int stats(const Common& common, const StatsOptions& options);
struct LogOptions {
    int lines = 200;
    bool follow = false;
};
int log(const Common& common, const LogOptions& options);

// Helpers of several commands.

// A whole file, or stdin for "-". A Failure where it cannot be read.
[[nodiscard]] std::string readInput(const std::string& path);
// Prints the body of an answer that is JSON; with several addresses beside the one it is from.
void printJson(const Common& common, const std::string& url, std::string_view body);
// Asks, and gives a success's body; a Failure otherwise.
[[nodiscard]] std::string fetch(zephon::Client& client, const std::string& url,
                                const std::string& target);
// The id behind an id or display name.
[[nodiscard]] std::string voiceId(zephon::Client& client, const std::string& url,
                                  const std::string& voice);
// A heading above what one of several services says.
void printHeading(const Common& common, const std::string& url);
void sleepSeconds(double seconds);

}  // namespace zephonctl
