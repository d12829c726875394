// Test entry point: files are created in temporary folders and are not worth
// flushing to disk, so the engine runs without syncing unless a test asks;
// numbers and money follow the default regional style unless a test asks.
#include <gtest/gtest.h>
#include <stdlib.h>

int main(int argc, char** argv) {
    setenv("RECMAN_SYNC", "off", 0);
    // The machine's own regional profile stays out of the tests.
    setenv("DBFILE_PROFILE", "/nonexistent/dbfile-test-profile.ini", 0);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
