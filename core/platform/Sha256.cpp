#include "core/platform/Sha256.h"

#include <memory>

#include <openssl/evp.h>

#include "core/platform/Require.h"

namespace zepho {
namespace {

struct FreeContext {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

// Looking the algorithm up costs as much as hashing a short text; it is done once.
const EVP_MD* algorithm() {
    static EVP_MD* const fetched = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    return fetched;
}

}  // namespace

Sha256Digest sha256Digest(ByteView bytes) {
    thread_local const std::unique_ptr<EVP_MD_CTX, FreeContext> context(EVP_MD_CTX_new());
    Sha256Digest digest{};
    const bool done = context && EVP_DigestInit_ex2(context.get(), algorithm(), nullptr) == 1 &&
                      EVP_DigestUpdate(context.get(), bytes.data(), bytes.size()) == 1 &&
                      EVP_DigestFinal_ex(context.get(), digest.data(), nullptr) == 1;
    require(done, "SHA-256 is not available");
    return digest;
}

}  // namespace zepho
