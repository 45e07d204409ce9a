// The form as another maker's parser reads it.
#include <thread>

#include <gtest/gtest.h>
#include <httplib.h>

#include "core/engine/S2Form.h"
#include "core/platform/HttpClient.h"

namespace zepho {
namespace {

TEST(S2Form, isReadByAParserOfOthers) {
    S2Params params;
    params.text = "[calm] 第 12 号航班\r\n--ready--";
    Bytes clip = toBytes("RIFF----WAVE\r\n--");
    for (int byte = 0; byte < 256; ++byte) clip.push_back(static_cast<std::uint8_t>(byte));
    params.referenceAudio = clip;
    params.referenceText = "one\ntwo";
    params.seed = 7;
    const MultipartForm form = buildGenerateForm(params, makeBoundary());

    httplib::Server server;
    httplib::MultipartFormDataMap seen;
    server.Post("/generate", [&seen](const httplib::Request& request, httplib::Response& answer) {
        seen = request.files;
        answer.set_content("ok", "text/plain");
    });
    const int port = server.bind_to_any_port("127.0.0.1");
    ASSERT_GT(port, 0);
    std::thread serving([&server] { server.listen_after_bind(); });
    HttpCall request;
    request.method = "POST";
    request.url = "http://127.0.0.1:" + std::to_string(port) + "/generate";
    request.headers = {"Content-Type: multipart/form-data; boundary=" + form.boundary};
    request.body = form.body;
    request.direct = true;
    const HttpReply answer = httpSend(request);
    server.stop();
    serving.join();

    ASSERT_EQ(answer.status, 200) << answer.error;
    ASSERT_EQ(seen.size(), 4U);
    const auto content = [&seen](const char* name) { return seen.find(name)->second.content; };
    EXPECT_EQ(content("text"), params.text);
    EXPECT_EQ(content("reference"), asText(clip));
    EXPECT_EQ(seen.find("reference")->second.filename, "reference.wav");
    EXPECT_EQ(content("reference_text"), "one\ntwo");
    EXPECT_EQ(content("params"), samplingJson(params));
}

}  // namespace
}  // namespace zepho
