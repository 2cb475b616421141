// The main() of every test program.
#include <gtest/gtest.h>

#include "support/SocketLibrary.h"

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    // The library expects the process to have started the socket library (on Windows).
    velmora::test::startSocketLibrary();
    return RUN_ALL_TESTS();
}
