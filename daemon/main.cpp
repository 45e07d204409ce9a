// zephond: the service without a window.
//
// Takes no arguments. Log lines go to stderr, the addresses of the listener to stdout, one a line,
// when it is up. SIGTERM, SIGINT and SIGHUP end it in order with exit code 0; a listener that cannot
// start, or another service on the same data, ends it with 1. The listener starts whatever
// "autoStart" says: without a window nobody could start it later.
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <system_error>

#include "core/base/TtsError.h"
#include "core/config/AppConfig.h"
#include "core/config/ZEPHOPaths.h"
#include "core/diag/AppLog.h"
#include "core/diag/Language.h"
#include "core/http/TtsHttpService.h"
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
    TaskQueue queue("zepho.http");
    try {
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
    const auto config = std::make_shared<AppConfig>();
    config->load();
    setUiLang(config->uiLanguage);
    const InstanceLock onlyOne(ZEPHOPaths::dataRoot() + "zephon.lock");
    if (onlyOne.isTaken()) {
        std::fprintf(stderr, "%s\n", whyAnotherCannotStart(*config).c_str());
        return 1;
    }
    const std::shared_ptr<TtsService> service = TtsService::make(config);
    const std::shared_ptr<TtsHttpService> http = TtsHttpService::make(service);
    try {
        http->start();
    } catch (const TtsError& failure) {
        std::fprintf(stderr, "%s\n", failure.message.c_str());
        service->shutdown();
        return 1;
    }
    for (const std::string& url : http->allEndpoints()) std::printf("%s\n", url.c_str());
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
    const MemoryCare care;
    const int code = run();
    // A line that is still inside the engine would hold an ordinary return for minutes.
    std::fflush(nullptr);
    std::_Exit(code);
}
