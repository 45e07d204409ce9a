// Every test program runs in a data root of its own and in English, whatever the user's desktop.
#include <cstdlib>

#include <gtest/gtest.h>

#include "core/diag/Language.h"
#include "tests/support/TempDir.h"

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const zepho::test::TempDir root;
    ::setenv("ZEPHO_HOME", root.path().c_str(), 1);
    ::setenv("HOME", root.path().c_str(), 1);
    ::unsetenv("ZEPHO_ENGINE_DIR");
    zepho::setUiLang(zepho::UiLang::en);
    return RUN_ALL_TESTS();
}
