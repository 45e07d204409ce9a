#include "core/models/ModelDownloader.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <filesystem>
#include <limits>
#include <optional>
#include <system_error>
#include <utility>

#include "core/base/Constants.h"
#include "core/config/ZEPHOPaths.h"
#include "core/diag/AppLog.h"
#include "core/diag/Language.h"
#include "core/engine/EngineDiscovery.h"
#include "core/models/DownloadVerdict.h"
#include "core/platform/AppendFile.h"
#include "core/platform/Errors.h"
#include "core/platform/FileSize.h"
#include "core/platform/Files.h"
#include "core/platform/MainThread.h"

namespace zepho {
namespace {

constexpr const char* logSource = "models";
constexpr int statusOk = 200;
constexpr int statusPartial = 206;

using SteadyClock = std::chrono::steady_clock;

}  // namespace

// One file's way from the request to its final name. Set up by fetch(), then touched by the events of
// its transfer only.
struct ModelDownloader::Attempt {
    std::string currentFile;
    std::string url;
    std::string target;
    std::string partPath;
    std::int64_t base = 0;          // bytes there when the attempt began: where the range starts
    std::int64_t received = 0;      // bytes there now
    std::int64_t serverTotal = 0;   // by the server's word; 0 until known
    std::int64_t displayTotal = 0;  // by the catalogue
    SteadyClock::time_point startTime = SteadyClock::now();
    std::optional<AppendFile> sink;  // absent: nothing is written
    std::string writeError;          // why the attempt stopped itself
    Completion finished;

    [[nodiscard]] DownloadProgress at(DownloadStage stage, std::int64_t bytes,
                                      std::int64_t total) const {
        DownloadProgress progress;
        progress.stage = stage;
        progress.fileName = currentFile;
        progress.received = bytes;
        progress.total = total;
        return progress;
    }
    [[nodiscard]] double bytesPerSec() const {
        const double seconds =
            std::chrono::duration<double>(SteadyClock::now() - startTime).count();
        return seconds > 0 ? static_cast<double>(received - base) / seconds : 0;
    }
};

// Carries waiting reports to the main thread. One that is dropped on the way leaves the way free.
class ModelDownloader::Delivery {
public:
    explicit Delivery(std::weak_ptr<ModelDownloader> to) : owner(std::move(to)) {}
    Delivery(const Delivery&) = delete;
    Delivery& operator=(const Delivery&) = delete;
    ~Delivery() {
        const std::shared_ptr<ModelDownloader> downloader = delivered ? nullptr : owner.lock();
        if (!downloader) return;
        const std::lock_guard guard(downloader->lock);
        downloader->deliveryWaits = false;
        downloader->undelivered.clear();
    }
    void arrive() {
        delivered = true;
        if (const std::shared_ptr<ModelDownloader> downloader = owner.lock()) downloader->deliver();
    }

private:
    const std::weak_ptr<ModelDownloader> owner;
    bool delivered = false;
};

std::shared_ptr<ModelDownloader> ModelDownloader::make(HttpLimits limits) {
    return std::shared_ptr<ModelDownloader>(new ModelDownloader(std::move(limits)));
}

void ModelDownloader::start(const ModelVariant& variant, const std::string& host,
                            bool withTokenizer) {
    {
        const std::lock_guard guard(lock);
        if (busyFlag) return;
        aborted = false;
        busyFlag = true;
    }
    const std::weak_ptr<ModelDownloader> weak = weak_from_this();
    const Completion end = [weak](bool, const std::string&) {
        if (const auto self = weak.lock()) self->endJob();
    };
    if (!withTokenizer || tokenizerInstalled()) {
        fetch(variant, host, end);
        return;
    }
    fetch(tokenizerVariant(), host, [weak, variant, host, end](bool ok, const std::string&) {
        const auto self = weak.lock();
        if (!self) return;
        if (ok && !self->isAborted())
            self->fetch(variant, host, end);
        else
            self->endJob();
    });
}

void ModelDownloader::cancel() {
    std::shared_ptr<HttpTransfer> taken;
    {
        const std::lock_guard guard(lock);
        aborted = true;
        taken.swap(task);
    }
    if (taken) session.cancel(taken);
}

bool ModelDownloader::busy() const {
    const std::lock_guard guard(lock);
    return busyFlag;
}

DownloadProgress ModelDownloader::snapshot() const {
    const std::lock_guard guard(lock);
    return last;
}

void ModelDownloader::setOnProgress(ProgressHandler handler) {
    const std::lock_guard guard(lock);
    // The old one goes away after the lock.
    onProgress.swap(handler);
}

bool ModelDownloader::isAborted() const {
    const std::lock_guard guard(lock);
    return aborted;
}

void ModelDownloader::endJob() {
    const std::lock_guard guard(lock);
    busyFlag = false;
}

void ModelDownloader::fetch(const ModelVariant& variant, const std::string& host,
                            Completion completion) {
    try {
        createDirectories(ZEPHOPaths::modelsDir());
    } catch (const std::system_error&) {
        // It shows when the file is opened.
    }
    const AttemptRef attempt = std::make_shared<Attempt>();
    attempt->currentFile = variant.fileName;
    attempt->target = ZEPHOPaths::modelsDir() + variant.fileName;
    attempt->partPath = attempt->target + ".part";
    attempt->displayTotal = variant.sizeBytes;
    attempt->finished = std::move(completion);
    {
        const std::lock_guard guard(lock);
        current = attempt;
    }
    if (const std::int64_t size = fileSizeOf(attempt->target); size >= 1) {
        AppLog::info(logSource, variant.fileName + " already present, skipping");
        report(*attempt, attempt->at(DownloadStage::done, size, size));
        endJob();
        return;
    }
    attempt->url = variant.url.empty() ? downloadUrl(host, variant.fileName) : variant.url;
    if (!isHttpAddress(attempt->url)) {
        fail(*attempt, 0, attempt->displayTotal, "bad url: " + attempt->url);
        endJob();
        return;
    }
    begin(attempt);
}

void ModelDownloader::begin(const AttemptRef& attempt) {
    attempt->base = std::max<std::int64_t>(fileSizeOf(attempt->partPath), 0);
    attempt->received = attempt->base;
    std::vector<std::string> headers{std::string("User-Agent: Zephon/") + ZEPHO::version};
    if (attempt->base >= 1)
        headers.push_back("Range: bytes=" + std::to_string(attempt->base) + "-");
    report(*attempt, attempt->at(DownloadStage::connecting, attempt->base, attempt->displayTotal));
    // Without a file the transfer runs all the same; the check at its end finds nothing.
    attempt->sink = attempt->base >= 1 ? AppendFile::openAtEnd(attempt->partPath)
                                       : AppendFile::createEmpty(attempt->partPath);
    attempt->startTime = SteadyClock::now();

    const std::weak_ptr<ModelDownloader> weak = weak_from_this();
    const std::shared_ptr<HttpTransfer> transfer =
        HttpSession::transfer(attempt->url, headers,
                              {[weak, attempt](const HttpHead& head) {
                                   const auto self = weak.lock();
                                   return self && self->takeHead(*attempt, head);
                               },
                               [weak, attempt](ByteView data) {
                                   const auto self = weak.lock();
                                   return self && self->takeData(*attempt, data);
                               },
                               [weak, attempt](const HttpOutcome& outcome) {
                                   attempt->sink.reset();
                                   if (const auto self = weak.lock())
                                       self->takeEnd(*attempt, outcome);
                               }});
    bool alreadyAborted = false;
    {
        const std::lock_guard guard(lock);
        alreadyAborted = aborted;
        task = transfer;
    }
    // A cancel between two files has found no transfer to stop.
    if (alreadyAborted) session.cancel(transfer);
    try {
        session.start(transfer);
    } catch (const std::exception& error) {
        const std::string text = describeError(error);
        fail(*attempt, attempt->base, attempt->displayTotal, text);
        complete(*attempt, false, text);
    }
}

bool ModelDownloader::takeHead(Attempt& attempt, const HttpHead& head) {
    if (attempt.base > 0 && head.status == statusOk) {
        // The range was ignored: the whole file comes, from its start.
        attempt.sink.reset();
        attempt.sink = AppendFile::createEmpty(attempt.partPath);
        attempt.base = attempt.received = 0;
    }
    if (head.status == statusOk || head.status == statusPartial) {
        constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
        if (head.length >= 1 && head.length <= most - attempt.base)
            attempt.serverTotal = attempt.base + head.length;
        return true;
    }
    fail(attempt, attempt.base, attempt.displayTotal,
         TF("HTTP %d %@(源:%@)", head.status, httpStatusPhrase(head.status), attempt.url));
    complete(attempt, false, "http " + std::to_string(head.status));
    return false;
}

bool ModelDownloader::takeData(Attempt& attempt, ByteView data) {
    if (isAborted()) return false;
    if (attempt.sink) {
        try {
            attempt.sink->write(data);
        } catch (const std::system_error& error) {
            attempt.writeError = describeError(error);
            return false;
        }
    }
    attempt.received += static_cast<std::int64_t>(data.size());
    DownloadProgress progress =
        attempt.at(DownloadStage::downloading, attempt.received,
                   attempt.serverTotal >= 1 ? attempt.serverTotal : attempt.displayTotal);
    progress.bytesPerSec = attempt.bytesPerSec();
    report(attempt, std::move(progress));
    return true;
}

void ModelDownloader::takeEnd(Attempt& attempt, const HttpOutcome& outcome) {
    if (isAborted()) {
        report(attempt,
               attempt.at(DownloadStage::cancelled, attempt.received, attempt.displayTotal));
        complete(attempt, false, "cancelled");
    } else if (outcome.failure != HttpFailure::none) {
        const std::string& text = attempt.writeError.empty() ? outcome.error : attempt.writeError;
        fail(attempt, attempt.received, attempt.displayTotal, text);
        complete(attempt, false, text);
    } else {
        report(attempt,
               attempt.at(DownloadStage::verifying, attempt.received, attempt.serverTotal));
        verify(attempt);
    }
}

void ModelDownloader::verify(Attempt& attempt) {
    const std::int64_t actual = fileSizeOf(attempt.partPath);
    const auto refuse = [&](const std::string& text, const char* reason) {
        fail(attempt, attempt.received, attempt.displayTotal, text);
        complete(attempt, false, reason);
    };
    switch (judgeDownload(actual, attempt.serverTotal, attempt.displayTotal)) {
        case DownloadVerdict::passed:
            install(attempt, actual);
            break;
        case DownloadVerdict::empty:
            refuse(T("下下来是空的"), "empty");
            break;
        case DownloadVerdict::incomplete:
            refuse(TF("收到 %@,服务器说应该是 %@ —— 传输不完整,残件留着可续传", humanSize(actual),
                      humanSize(attempt.serverTotal)),
                   "incomplete");
            break;
        case DownloadVerdict::sizeMismatch: {
            std::error_code ignored;
            std::filesystem::remove(attempt.partPath, ignored);
            refuse(TF("大小对不上(%@,估计应为 %@),多半是被网关塞了个错误页,已删除",
                      humanSize(actual), humanSize(attempt.displayTotal)),
                   "size mismatch");
            break;
        }
    }
}

void ModelDownloader::install(Attempt& attempt, std::int64_t actual) {
    std::error_code error;
    // After a power cut the final name must not stand for half a model.
    try {
        syncFile(attempt.partPath);
    } catch (const std::system_error& failure) {
        // What of it the disk has lost nobody knows, so there is nothing to go on from.
        std::filesystem::remove(attempt.partPath, error);
        const std::string text = describeError(failure);
        fail(attempt, 0, 0, text);
        complete(attempt, false, text);
        return;
    }
    // One step replaces what is there.
    std::filesystem::rename(attempt.partPath, attempt.target, error);
    if (error) {
        fail(attempt, 0, 0, T("改名失败(文件可能正被引擎占用):") + error.message());
        complete(attempt, false, "rename failed");
        return;
    }
    syncDirectory(ZEPHOPaths::modelsDir());
    AppLog::info(logSource, attempt.currentFile + " ready (" + humanSize(actual) + ")");
    report(attempt, attempt.at(DownloadStage::done, actual, actual));
    complete(attempt, true, "");
}

void ModelDownloader::complete(Attempt& attempt, bool ok, const std::string& reason) {
    attempt.sink.reset();
    const Completion taken = std::exchange(attempt.finished, nullptr);
    if (!taken) return;
    if (!ok) AppLog::debug(logSource, attempt.currentFile + " not fetched: " + reason);
    {
        const std::lock_guard guard(lock);
        task.reset();
    }
    taken(ok, reason);
}

void ModelDownloader::fail(Attempt& attempt, std::int64_t received, std::int64_t total,
                           const std::string& text) {
    DownloadProgress progress = attempt.at(DownloadStage::failed, received, total);
    progress.error = text;
    report(attempt, std::move(progress));
}

void ModelDownloader::report(const Attempt& attempt, DownloadProgress progress) {
    {
        const std::lock_guard guard(lock);
        // After a bad status the next job may begin before the last word of this one.
        if (current.get() != &attempt) return;
        last = progress;
        if (!onProgress) return;
        const bool replaces = !undelivered.empty() &&
                              progress.stage == DownloadStage::downloading &&
                              undelivered.back().stage == progress.stage &&
                              undelivered.back().fileName == progress.fileName;
        if (replaces)
            undelivered.back() = std::move(progress);
        else
            undelivered.push_back(std::move(progress));
        if (std::exchange(deliveryWaits, true)) return;
    }
    onMainThread([delivery = std::make_shared<Delivery>(weak_from_this())] { delivery->arrive(); });
}

void ModelDownloader::deliver() {
    std::vector<DownloadProgress> taken;
    ProgressHandler handler;
    {
        const std::lock_guard guard(lock);
        deliveryWaits = false;
        taken.swap(undelivered);
        handler = onProgress;
    }
    if (!handler) return;
    for (const DownloadProgress& progress : taken) handler(progress);
}

}  // namespace zepho
