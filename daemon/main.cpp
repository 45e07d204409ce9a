// zephond: the service without a window.
//
// Takes no arguments. Log lines go to stderr, the addresses of the listener to stdout, one a line,
// when it is up. SIGTERM, SIGINT and SIGHUP end it in order with exit code 0; a listener that cannot
// start, or another service on the same data, ends it with 1. The listener starts whatever
// "autoStart" says: without a window nobody could start it later.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <system_error>

#include "core/config/AppConfig.h"
#include "core/config/ZEPHOPaths.h"
#include "core/diag/AppLog.h"
#include "core/diag/Language.h"
#include "core/http/TtsHttpService.h"
#include "core/platform/Errors.h"
#include "core/platform/Files.h"
#include "core/platform/InstanceLock.h"
#include "core/platform/Memory.h"
#include "core/platform/ServiceNotify.h"
#include "core/platform/StopSignals.h"
#include "core/platform/TaskQueue.h"
#include "core/platform/Tcp.h"
#include "core/service/TtsService.h"

namespace {

using namespace zepho;

// With another service on the same data the port is taken, too, unless the settings have changed.
std::string whyAnotherCannotStart(const AppConfig& config) {
    const std::string address = config.bindAddress;
    const bool everywhere = address.empty() || address == "0.0.0.0";
    const auto port = static_cast<int>(config.port);
    try {
        TaskQueue queue("zepho.http");
        const TcpListener probe(queue, everywhere ? std::nullopt : std::optional(address),
                                static_cast<std::uint16_t>(port));
    } catch (const std::system_error& failure) {
        return portInUseError(failure, port).message;
    }
    return T("已经有一个 Zephon 在跑了。");
}

int run() {
    AppLog::setEchoToStderr(true);
    ZEPHOPaths::ensureDirectories();
    const InstanceLock onlyOne(ZEPHOPaths::dataRoot() + "zephon.lock");
    const auto config = std::make_shared<AppConfig>();
    // Reading settings that are missing writes them, which is for the holder of the lock to do.
    if (!onlyOne.isTaken() || fileExists(ZEPHOPaths::configFile())) config->load();
    setUiLang(config->uiLanguage);
    if (onlyOne.isTaken()) {
        std::fprintf(stderr, "%s\n", whyAnotherCannotStart(*config).c_str());
        return 1;
    }
    const std::shared_ptr<TtsService> service = TtsService::make(config);
    const std::shared_ptr<TtsHttpService> http = TtsHttpService::make(service);
    try {
        http->start();
        for (const std::string& url : http->allEndpoints()) std::printf("%s\n", url.c_str());
    } catch (...) {
        // The inference process may run already, and would stay behind.
        http->stop();
        service->shutdown();
        throw;
    }
    std::fflush(stdout);
    notifyServiceManager(ServiceState::ready);
    waitForStopSignal();
    notifyServiceManager(ServiceState::stopping);
    http->stop();
    service->shutdown();
    return 0;
}

}  // namespace

int main() {
    limitMemoryPools();
    holdStopSignals();
    std::optional<MemoryCare> care;
    int code = 1;
    try {
        care.emplace();
        code = run();
    } catch (const std::exception& failure) {
        // The port is taken, or the system gives no descriptors, threads, memory or room for data.
        std::fprintf(stderr, "%s\n", describeError(failure).c_str());
    }
    // A line that is still inside the engine would hold an ordinary return for minutes.
    std::fflush(nullptr);
    std::_Exit(code);
}
