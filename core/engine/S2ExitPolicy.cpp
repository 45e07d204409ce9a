#include "core/engine/S2ExitPolicy.h"

#include "core/diag/Language.h"

namespace zepho {

AfterExit afterExit(S2ChildPhase phase, int restarts, int maxRestarts) {
    if (phase == S2ChildPhase::loading || restarts >= maxRestarts)
        return {AfterExit::Action::fail, restarts};
    return {AfterExit::Action::restart, restarts + 1};
}

std::string exitHint(const ProcessExit& exit) {
    switch (exit.cause) {
        case ExitCause::illegalInstruction:
            return T(
                "这台电脑的 CPU 不支持引擎用到的指令集(非法指令)。换用别的计算后端,或者换一台较新的机"
                "器。");
        case ExitCause::aborted:
            return T("引擎主动中止了(多半是某个算子这个后端没实现)。看引擎日志的最后几行。");
        case ExitCause::killed:
            return T("内存不够,引擎起不来。");
        case ExitCause::busError:
        case ExitCause::segmentationFault:
            return T("引擎访问了非法内存(可能是模型文件损坏)。");
        case ExitCause::exited:
        case ExitCause::otherSignal:
            break;
    }
    return {};
}

std::string loadExitSentence(const ProcessExit& exit, const std::string& logPath) {
    std::string hint = exitHint(exit);
    if (hint.empty()) hint = T("(空)");
    return TF("推理进程退出了(信号 %@):%@,日志 %@", std::to_string(exit.number), hint, logPath);
}

}  // namespace zepho
