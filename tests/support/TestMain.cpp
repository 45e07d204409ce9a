// Every test program runs in a data root of its own and in English, whatever the user's desktop. What
// a case leaves in the temporary folder, since it dies on purpose, goes away with the program.
#include <cstdlib>

#include <gtest/gtest.h>

#include "core/diag/Language.h"
#include "tests/support/TempDir.h"

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const zepho::test::TempDir temp;
    ::setenv("TMPDIR", temp.path().c_str(), 1);
    const zepho::test::TempDir root;
    for (const char* name : {"ZEPHO_HOME", "HOME"}) ::setenv(name, root.path().c_str(), 1);
    ::unsetenv("ZEPHO_ENGINE_DIR");
    zepho::setUiLang(zepho::UiLang::en);
    return RUN_ALL_TESTS();
}
