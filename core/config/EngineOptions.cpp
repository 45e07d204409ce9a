#include "core/config/EngineOptions.h"

#include "core/diag/Language.h"

namespace zepho {

std::string EngineOptions::describe() const {
    return TF("本地 s2.cpp · %@ · temp %.2f / top_p %.2f / top_k %d",
              computeBackendDisplay(compute), static_cast<double>(temperature),
              static_cast<double>(topP), topK);
}

}  // namespace zepho
