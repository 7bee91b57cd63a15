// The environment of every test, set before any test runs: the common and settings folders
// inside the build tree, the test data and the source tree.
#include <cstdlib>

namespace {
struct TestEnvironment {
    TestEnvironment() {
        ::setenv("QK_COMMON_ROOT", QK_TEST_COMMON_ROOT, 1);
        ::setenv("QK_SETTINGS_DIR", QK_TEST_SETTINGS_DIR, 1);
        ::setenv("QK_TEST_DATA", QK_TEST_DATA_DIR, 1);
        ::setenv("QK_SOURCE_ROOT", QK_TEST_SOURCE_ROOT, 1);
    }
};
const TestEnvironment s_environment;
}  // namespace
