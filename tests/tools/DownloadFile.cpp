// Downloads one file into the models directory of ZEPHO_HOME: download-file <host> <name> <bytes>
// Exit code 0 when the file is there. Tests kill it, and bench-download measures it.
#include <cstdio>
#include <cstdlib>

#include "core/models/ModelDownloader.h"
#include "core/platform/MainThread.h"

int main(int argc, char** argv) {
    using namespace zepho;
    if (argc != 4) return 2;
    RunLoop loop;
    setMainThreadDispatcher([&](std::function<void()> run) { loop.post(std::move(run)); });
    ModelVariant variant;
    variant.fileName = argv[2];
    variant.sizeBytes = std::atoll(argv[3]);
    const std::shared_ptr<ModelDownloader> downloader = ModelDownloader::make();
    DownloadProgress last;
    downloader->setOnProgress([&](const DownloadProgress& progress) {
        last = progress;
        if (progress.stage == DownloadStage::done || progress.stage == DownloadStage::failed)
            loop.stop();
    });
    downloader->start(variant, argv[1], false);
    loop.run();
    setMainThreadDispatcher({});
    if (last.stage == DownloadStage::done) return 0;
    std::fprintf(stderr, "%s\n", last.describe().c_str());
    return 1;
}
