// Fetches a model of several gigabytes, and the tokenizer with it, over an unreliable line.
//
// A file takes its final name only after a check of its size. Until then its bytes lie beside it in
// a file ending in ".part", which outlives cancels, failures and restarts, so that the next attempt
// goes on where this one stopped. Held by std::shared_ptr; one instance in the application state, one
// job at a time. start() and cancel() are called on the main thread, the reports come there; the
// transfer runs on the thread of its session. The lock is never held across a callback, a file
// operation or a network call.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "core/models/DownloadProgress.h"
#include "core/models/ModelCatalog.h"
#include "core/platform/HttpTransfer.h"

namespace zepho {

class ModelDownloader : public std::enable_shared_from_this<ModelDownloader> {
public:
    using ProgressHandler = std::function<void(const DownloadProgress&)>;

    [[nodiscard]] static std::shared_ptr<ModelDownloader> make(HttpLimits limits = {});
    // Ends a running job without a word; its ".part" file stays.
    ~ModelDownloader() = default;
    ModelDownloader(const ModelDownloader&) = delete;
    ModelDownloader& operator=(const ModelDownloader&) = delete;

    // Begins a job and returns at once; nothing happens while one is running. `withTokenizer` fetches
    // the tokenizer first where it is missing. `host` is hostOfficial, hostMirror or another one
    // with the same paths.
    void start(const ModelVariant& variant, const std::string& host, bool withTokenizer);
    // Asks the job to stop.
    void cancel();

    [[nodiscard]] bool busy() const;
    // The latest report.
    [[nodiscard]] DownloadProgress snapshot() const;

    // Receives the reports on the main thread, in order. While the main thread is busy, reports of
    // the same download that differ in their numbers only make room for the newest.
    void setOnProgress(ProgressHandler handler);

private:
    struct Attempt;
    class Delivery;
    using Completion = std::function<void(bool ok, const std::string& reason)>;
    using AttemptRef = std::shared_ptr<Attempt>;

    explicit ModelDownloader(HttpLimits limits) : session(std::move(limits)) {}

    void fetch(const ModelVariant& variant, const std::string& host, Completion completion);
    void begin(const AttemptRef& attempt);
    bool takeHead(Attempt& attempt, const HttpHead& head);
    bool takeData(Attempt& attempt, ByteView data);
    void takeEnd(Attempt& attempt, const HttpOutcome& outcome);
    void verify(Attempt& attempt);
    void install(Attempt& attempt, std::int64_t actual);
    void complete(Attempt& attempt, bool ok, const std::string& reason);
    void endJob();

    void fail(Attempt& attempt, std::int64_t received, std::int64_t total, const std::string& text);
    void report(const Attempt& attempt, DownloadProgress progress);
    void deliver();

    [[nodiscard]] bool isAborted() const;

    // Guarding itself.
    HttpSession session;

    // Guarded by lock.
    mutable std::mutex lock;
    bool aborted = false;
    bool busyFlag = false;
    bool deliveryWaits = false;  // a Delivery is on its way to the main thread
    DownloadProgress last;
    std::vector<DownloadProgress> undelivered;
    std::shared_ptr<HttpTransfer> task;
    AttemptRef current;
    ProgressHandler onProgress;
};

}  // namespace zepho
