#include "core/platform/HttpTransfer.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <mutex>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>

#include "core/platform/CurlHandles.h"
#include "core/platform/NetInterfaces.h"
#include "core/platform/Require.h"
#include "core/platform/Thread.h"

namespace zepho {
namespace {

using std::chrono::milliseconds;
using SteadyTime = std::chrono::steady_clock::time_point;

// The largest that the library takes: one read from the socket, and one wait, for half a megabyte.
constexpr long receiveBufferBytes = CURL_MAX_READ_SIZE;
constexpr milliseconds idleWait{3'600'000};

// The rest of `line` without blanks around it, if the line is the header `name`, given in lower case.
std::optional<std::string_view> headerValue(std::string_view line, std::string_view name) {
    if (line.size() <= name.size() || line[name.size()] != ':') return std::nullopt;
    for (std::size_t i = 0; i < name.size(); ++i) {
        const char lower = line[i] >= 'A' && line[i] <= 'Z' ? char(line[i] + 32) : line[i];
        if (lower != name[i]) return std::nullopt;
    }
    line.remove_prefix(name.size() + 1);
    const std::size_t first = line.find_first_not_of(" \t");
    if (first == std::string_view::npos) return std::string_view();
    return line.substr(first, line.find_last_not_of(" \t") - first + 1);
}

std::int64_t leadingNumber(std::string_view text) {
    std::int64_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

bool isLoopbackOrLocal(const std::string& address) {
    return address.starts_with("127.") || address == "::1" || address.starts_with("fe80:");
}

}  // namespace

bool networkIsUp() {
    const std::vector<InterfaceAddress> all = interfaceAddresses();
    return std::any_of(all.begin(), all.end(), [](const InterfaceAddress& address) {
        return !isLoopbackOrLocal(address.text);
    });
}

struct HttpTransfer {
    // Constant after construction.
    std::string url;
    std::vector<std::string> requestHeaders;
    HttpEvents events;

    // Guarding themselves.
    std::atomic<bool> started{false};
    std::atomic<bool> cancelled{false};

    // Used by the session's thread only.
    CurlHandle handle;
    CurlHeaders headerList;
    CurlWords words{};
    HttpHead head;
    bool redirected = false;  // by the response that is coming in
    bool chunked = false;
    bool headTold = false;
    bool aborted = false;
    bool heard = false;  // something has come since the last look
    SteadyTime begun;
    SteadyTime lastHeard;
    SteadyTime headWaitBegun;
    std::optional<SteadyTime> tryAgainAt;

    void prepare(const std::shared_ptr<HttpTransfer>& self);
    bool takeHeaderLine(std::string_view line);
    bool takeData(ByteView data);
    void tellEnd(CURLcode code);
};

namespace {

std::size_t onHeader(char* data, std::size_t size, std::size_t count, void* user) {
    std::string_view line(data, size * count);
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
    return static_cast<HttpTransfer*>(user)->takeHeaderLine(line) ? size * count : 0;
}

std::size_t onData(char* data, std::size_t size, std::size_t count, void* user) {
    const ByteView piece = asBytes({data, size * count});
    return static_cast<HttpTransfer*>(user)->takeData(piece) ? size * count : CURL_WRITEFUNC_ERROR;
}

}  // namespace

void HttpTransfer::prepare(const std::shared_ptr<HttpTransfer>& self) {
    begun = lastHeard = headWaitBegun = std::chrono::steady_clock::now();
    if (curlReady() == CURLE_OK) handle.reset(curl_easy_init());
    if (!handle) return;
    CURL* easy = handle.get();
    describeExchange(easy, url, words);
    followRedirects(easy, url);
    headerList = curlHeaders(requestHeaders);
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headerList.get());
    curl_easy_setopt(easy, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    curl_easy_setopt(easy, CURLOPT_BUFFERSIZE, receiveBufferBytes);
    // A cancel must not wait for a name that is being looked up.
    curl_easy_setopt(easy, CURLOPT_QUICK_EXIT, 1L);
    // The session's own limits hold.
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, curlMilliseconds(milliseconds::max()));
    curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, onHeader);
    curl_easy_setopt(easy, CURLOPT_HEADERDATA, this);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, onData);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, this);
    curl_easy_setopt(easy, CURLOPT_PRIVATE, self.get());
}

bool HttpTransfer::takeHeaderLine(std::string_view line) {
    heard = true;
    if (cancelled) return false;
    // What follows the body is no head.
    if (headTold) return true;
    if (line.starts_with("HTTP/")) {
        const std::size_t blank = line.find(' ');
        head = {};
        if (blank != std::string_view::npos)
            head.status = static_cast<int>(leadingNumber(line.substr(blank + 1)));
        redirected = chunked = false;
    } else if (const auto length = headerValue(line, "content-length")) {
        head.length = std::max<std::int64_t>(leadingNumber(*length), 0);
    } else if (const auto coding = headerValue(line, "transfer-encoding")) {
        chunked = !coding->empty();
    } else if (const auto place = headerValue(line, "location")) {
        redirected = !place->empty() && head.status >= 300 && head.status < 400;
    } else if (line.empty() && head.status >= 200 && !redirected) {
        // A coding of the transfer makes an announced length void.
        if (chunked) head.length = 0;
        headTold = true;
        aborted = !events.headers(head);
    }
    return !aborted;
}

bool HttpTransfer::takeData(ByteView data) {
    if (cancelled) return false;
    if (!events.data(data)) aborted = true;
    // Told after the event: a slow disk is not a silent server.
    heard = true;
    return !aborted;
}

void HttpTransfer::tellEnd(CURLcode code) {
    HttpOutcome outcome;
    const bool endedShort = code == CURLE_PARTIAL_FILE && headTold && head.length > 0;
    if (code == CURLE_OK && !headTold) {
        // The library takes a stream that ends between two lines of the head for a whole response.
        outcome = {HttpFailure::transport, "the response ended within its head"};
    } else if (code == CURLE_OK) {
        // Nothing to say.
    } else if (aborted || cancelled) {
        outcome = {HttpFailure::cancelled, "cancelled"};
    } else if (!endedShort) {
        const bool late = code == CURLE_OPERATION_TIMEDOUT;
        outcome = {late ? HttpFailure::timedOut : HttpFailure::transport, curlWords(code, words)};
    }
    events.completed(outcome);
    // The events may hold what holds the transfer.
    events = {};
    handle.reset();
}

// Owned by the session and its thread together, so that a session may end within an event.
struct HttpSession::Queue {
    explicit Queue(HttpLimits given) : limits(std::move(given)) {
        if (curlReady() == CURLE_OK) multi = curl_multi_init();
        require(multi != nullptr, "libcurl does not start");
    }
    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;
    ~Queue() { curl_multi_cleanup(multi); }

    void run();
    bool takeIn();
    void begin(const std::shared_ptr<HttpTransfer>& transfer);
    void finishDone();
    void finish(const std::shared_ptr<HttpTransfer>& transfer, CURLcode code);
    void lookAfter(SteadyTime now);
    [[nodiscard]] SteadyTime deadline(const HttpTransfer& transfer) const;
    [[nodiscard]] milliseconds nextLook(SteadyTime now) const;
    [[nodiscard]] bool waitsForNetwork(const HttpTransfer& transfer, CURLcode code) const;

    // Constant after construction.
    const HttpLimits limits;
    CURLM* multi = nullptr;  // but for its wake-up, used by the thread only

    // Used by the thread only.
    std::vector<std::shared_ptr<HttpTransfer>> active;

    // Guarded by lock.
    std::mutex lock;
    std::vector<std::shared_ptr<HttpTransfer>> arriving;
    std::thread thread;
    bool ending = false;
};

void HttpSession::Queue::run() {
    while (takeIn()) {
        int running = 0;
        curl_multi_perform(multi, &running);
        finishDone();
        const SteadyTime now = std::chrono::steady_clock::now();
        lookAfter(now);
        curl_multi_poll(multi, nullptr, 0, static_cast<int>(nextLook(now).count()), nullptr);
    }
    while (!active.empty()) {
        const std::shared_ptr<HttpTransfer> last = active.back();
        last->cancelled = true;
        finish(last, CURLE_ABORTED_BY_CALLBACK);
    }
}

// False when the session has ended.
bool HttpSession::Queue::takeIn() {
    std::vector<std::shared_ptr<HttpTransfer>> taken;
    bool go = false;
    {
        const std::lock_guard guard(lock);
        taken.swap(arriving);
        go = !ending;
    }
    for (const std::shared_ptr<HttpTransfer>& transfer : taken) {
        active.push_back(transfer);
        transfer->prepare(transfer);
        if (go) begin(transfer);
    }
    return go;
}

void HttpSession::Queue::begin(const std::shared_ptr<HttpTransfer>& transfer) {
    transfer->tryAgainAt.reset();
    transfer->lastHeard = transfer->headWaitBegun = std::chrono::steady_clock::now();
    if (!transfer->handle) return finish(transfer, CURLE_FAILED_INIT);
    if (curl_multi_add_handle(multi, transfer->handle.get()) != CURLM_OK)
        finish(transfer, CURLE_OUT_OF_MEMORY);
}

void HttpSession::Queue::finishDone() {
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi, &left)) {
        if (message->msg != CURLMSG_DONE) continue;
        const CURLcode code = message->data.result;
        HttpTransfer* which = nullptr;
        curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &which);
        const auto found = std::find_if(active.begin(), active.end(),
                                        [&](const auto& each) { return each.get() == which; });
        require(found != active.end(), "a transfer that nobody knows has ended");
        const std::shared_ptr<HttpTransfer> transfer = *found;
        if (waitsForNetwork(*transfer, code)) {
            curl_multi_remove_handle(multi, transfer->handle.get());
            transfer->words[0] = '\0';
            transfer->tryAgainAt = std::chrono::steady_clock::now() + limits.reconnect;
        } else {
            finish(transfer, code);
        }
    }
}

void HttpSession::Queue::finish(const std::shared_ptr<HttpTransfer>& transfer, CURLcode code) {
    if (transfer->handle) curl_multi_remove_handle(multi, transfer->handle.get());
    active.erase(std::find(active.begin(), active.end(), transfer));
    transfer->tellEnd(code);
}

// Cancels, time limits and second tries.
void HttpSession::Queue::lookAfter(SteadyTime now) {
    const std::vector<std::shared_ptr<HttpTransfer>> all = active;
    for (const std::shared_ptr<HttpTransfer>& transfer : all) {
        if (std::exchange(transfer->heard, false)) transfer->lastHeard = now;
        if (transfer->cancelled) {
            finish(transfer, CURLE_ABORTED_BY_CALLBACK);
        } else if (deadline(*transfer) <= now) {
            transfer->words[0] = '\0';
            finish(transfer, CURLE_OPERATION_TIMEDOUT);
        } else if (transfer->tryAgainAt && *transfer->tryAgainAt <= now) {
            begin(transfer);
        }
    }
}

SteadyTime HttpSession::Queue::deadline(const HttpTransfer& transfer) const {
    const SteadyTime whole = transfer.begun + limits.whole;
    if (transfer.tryAgainAt) return whole;
    const SteadyTime silence = std::min(whole, transfer.lastHeard + limits.silence);
    return transfer.headTold ? silence : std::min(silence, transfer.headWaitBegun + limits.head);
}

milliseconds HttpSession::Queue::nextLook(SteadyTime now) const {
    milliseconds wait = idleWait;
    for (const std::shared_ptr<HttpTransfer>& transfer : active) {
        SteadyTime look = deadline(*transfer);
        if (transfer->tryAgainAt) look = std::min(look, *transfer->tryAgainAt);
        wait = std::min(wait, std::chrono::ceil<milliseconds>(look - now));
    }
    return std::max(wait, milliseconds(0));
}

bool HttpSession::Queue::waitsForNetwork(const HttpTransfer& transfer, CURLcode code) const {
    if (transfer.cancelled || transfer.headTold) return false;
    long number = 0;
    curl_easy_getinfo(transfer.handle.get(), CURLINFO_OS_ERRNO, &number);
    const bool noWay = number == ENETUNREACH || number == EHOSTUNREACH || number == ENETDOWN;
    if (code != CURLE_COULDNT_RESOLVE_HOST && !(code == CURLE_COULDNT_CONNECT && noWay))
        return false;
    return !limits.networkUp();
}

HttpSession::HttpSession(HttpLimits limits) : queue(std::make_shared<Queue>(std::move(limits))) {}

HttpSession::~HttpSession() {
    std::thread thread;
    {
        const std::lock_guard guard(queue->lock);
        queue->ending = true;
        thread.swap(queue->thread);
    }
    if (!thread.joinable()) return;
    curl_multi_wakeup(queue->multi);
    if (thread.get_id() == std::this_thread::get_id())
        thread.detach();
    else
        thread.join();
}

std::shared_ptr<HttpTransfer> HttpSession::transfer(const std::string& url,
                                                    const std::vector<std::string>& headers,
                                                    HttpEvents events) {
    auto made = std::make_shared<HttpTransfer>();
    made->url = url;
    made->requestHeaders = headers;
    made->events = std::move(events);
    return made;
}

void HttpSession::start(const std::shared_ptr<HttpTransfer>& transfer) {
    require(!transfer->started.exchange(true), "a transfer is started once");
    {
        const std::lock_guard guard(queue->lock);
        if (!queue->thread.joinable())
            queue->thread = startThread("zepho-transfer", [held = queue] { held->run(); });
        queue->arriving.push_back(transfer);
    }
    curl_multi_wakeup(queue->multi);
}

void HttpSession::cancel(const std::shared_ptr<HttpTransfer>& transfer) {
    transfer->cancelled = true;
    curl_multi_wakeup(queue->multi);
}

}  // namespace zepho
