#include "core/engine/S2Process.h"

#include <cstdio>
#include <exception>
#include <system_error>

#include "core/config/ZEPHOPaths.h"
#include "core/diag/AppLog.h"
#include "core/platform/Files.h"
#include "core/platform/TcpProbe.h"

namespace zepho {
namespace {

// The user's own words: no quoting rules.
void appendWords(std::vector<std::string>& list, const std::string& text) {
    std::size_t begin = 0;
    while (begin < text.size()) {
        const std::size_t end = std::min(text.find(' ', begin), text.size());
        if (end > begin) list.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
}

}  // namespace

std::optional<S2Port> pickS2Port(const S2Tuning& tuning) {
    for (int port = tuning.firstPort; port <= tuning.lastPort; ++port) {
        // Claimed before it is asked: of two services that ask at one moment, one gets it.
        std::optional<PortClaim> claim = PortClaim::of(port);
        if (claim && probeLoopbackPort(port, tuning.probeLimit) != TcpProbe::answered)
            return S2Port{port, *std::move(claim)};
    }
    return std::nullopt;
}

bool s2UsesGpu(const EngineOptions& options, bool gpu) {
    return gpu && options.compute != ComputeBackend::cpu;
}

std::vector<std::string> s2Arguments(const S2Files& files, const EngineOptions& options, int port,
                                     bool gpu) {
    std::vector<std::string> words{"--model",   files.model, "--server",          "--host",
                                   "127.0.0.1", "--port",    std::to_string(port)};
    const auto add = [&words](std::initializer_list<std::string> more) {
        words.insert(words.end(), more);
    };
    if (!files.tokenizer.empty()) add({"--tokenizer", files.tokenizer});
    // The codec stays on the CPU in both cases: the GPU backend lacks one of its operations.
    if (s2UsesGpu(options, gpu))
        add({"-M", "-ngl", std::to_string(options.gpuLayers < 0 ? 99 : options.gpuLayers),
             "--codec-cpu"});
    else
        add({"-ngl", "0", "--codec-cpu"});
    if (options.threads >= 1) add({"-threads", std::to_string(options.threads)});
    // Last, so that they override what stands before them.
    appendWords(words, options.extraArgs);
    return words;
}

std::shared_ptr<Process> launchS2(const S2Files& files, const std::vector<std::string>& arguments) {
    try {
        createDirectories(ZEPHOPaths::logsDir());
    } catch (const std::system_error&) {
        // The child then runs without a log.
    }
    std::shared_ptr<Process> process = Process::spawn(
        {files.executable, arguments, parentDirectory(files.executable), ZEPHOPaths::engineLog()});
    try {
        saveFileBytes(ZEPHOPaths::enginePidFile(), asBytes(std::to_string(process->pid())));
    } catch (const std::exception&) {
        // Only the sweep of a later run needs it.
    }
    return process;
}

void endS2(Process* process, const S2Tuning& tuning) {
    if (process == nullptr || !process->running()) return;
    process->terminate();
    if (process->waitForExit(tuning.stopLimit, tuning.stopPoll)) return;
    process->killGroup();
    if (!process->waitForExit(tuning.killLimit, tuning.stopPoll))
        AppLog::warn("s2", "inference process " + std::to_string(process->pid()) +
                               " does not end although it was killed");
}

void removeS2PidFile() {
    std::remove(ZEPHOPaths::enginePidFile().c_str());
}

}  // namespace zepho
