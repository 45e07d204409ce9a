// zephond: the service without a window.
//
// Takes no arguments. Log lines go to stderr, the addresses of the listener to stdout, one a line,
// when it is up. SIGTERM, SIGINT and SIGHUP end it in order with exit code 0; a listener that cannot
// start ends it with 1. The listener starts whatever "autoStart" says: without a window nobody could
// start it later.
#include <cstdio>
#include <cstdlib>

#include "core/base/TtsError.h"
#include "core/config/AppConfig.h"
#include "core/config/ZEPHOPaths.h"
#include "core/diag/AppLog.h"
#include "core/diag/Language.h"
#include "core/http/TtsHttpService.h"
#include "core/platform/StopSignals.h"
#include "core/service/TtsService.h"

namespace {

int run() {
    using namespace zepho;
    AppLog::setEchoToStderr(true);
    ZEPHOPaths::ensureDirectories();
    const auto config = std::make_shared<AppConfig>();
    config->load();
    setUiLang(config->uiLanguage);
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
    waitForStopSignal();
    http->stop();
    service->shutdown();
    return 0;
}

}  // namespace

int main() {
    zepho::holdStopSignals();
    const int code = run();
    // A line that is still inside the engine would hold an ordinary return for minutes.
    std::fflush(nullptr);
    std::_Exit(code);
}
