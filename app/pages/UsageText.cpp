#include "app/pages/UsageText.h"

#include <array>

#include "core/diag/Language.h"

namespace zepho {
namespace {

constexpr std::array routeKeys{
    "  GET    /v1/health      健康检查",
    "  GET    /v1/selftest    连通自检 —— 在客户端那台机器上开这个地址就知道通没通",
    "  GET    /v1/voices      音色列表",
    "  POST   /v1/voices/clone  上传参考音频克隆",
    "  GET    /v1/defaults    语言×性别 → 音色",
    "  GET    /v1/stats       统计",
    "  DELETE /v1/cache       清缓存",
};

std::string postOf(const std::string& url, const std::string& body, const std::string& rest) {
    return "curl -X POST " + url +
           " \\\n"
           "  -H \"Content-Type: application/json\" \\\n"
           "  -d '" +
           body + "'" + rest + "\n";
}

}  // namespace

std::string usageText(const std::vector<std::string>& endpoints, const std::string& bindAddress,
                      const std::string& baseUrl) {
    const std::string base = endpoints.empty() ? baseUrl : endpoints.front();
    std::string text;
    if (bindAddress.empty() || bindAddress == "0.0.0.0") {
        text += T("# 这台机器听所有网卡。别的电脑可以用下面任意一个地址连:") + "\n";
        for (const std::string& endpoint : endpoints) text += "#   " + endpoint + "\n";
    } else {
        text += TF("# 只听 %@", bindAddress) + "\n";
    }
    text += "\n" + T("# 合成一句话,直接拿到 WAV 内存流") + "\n";
    text += postOf(base + "/v1/tts",
                   R"({"text":"Flight CA1501 is now boarding at gate 12.","language":"en",)"
                   R"("gender":"female","speed":1.0})",
                   " \\\n  -o out.wav");
    text += "\n" + T("# 快速验证(GET,参数走 query)") + "\n";
    text +=
        "curl \"" + base + "/v1/tts?text=hello&language=en&gender=female&speed=1.1\" -o out.wav\n";
    text += "\n" + T("# 给 Corvanteer-Server 的 BASS:响应体就是完整 WAV,不用落盘") + "\n";
    text += T("现成的 WinHTTP 客户端在 Zephon\\interface\\zephon_client.h") + "\n";
    text += T("# 不校验任何身份:请求到了就有服务") + "\n";
    text += "\n" + T("# 其它路径") + "\n";
    for (const char* key : routeKeys) text += T(key) + "\n";
    text += "\n" + T("# 提前把整套广播词条烤进缓存(只烤不回音频,立刻返回)") + "\n";
    text += postOf(base + "/v1/prewarm",
                   R"({"language":"en","gender":"female","items":[{"text":"Now boarding."},)"
                   R"({"text":"This is the final call."}]})",
                   "");
    text += T("#   烤完没有?看 /v1/stats 里的 prewarm_pending,到 0 就是全好了") + "\n";
    return text;
}

}  // namespace zepho
