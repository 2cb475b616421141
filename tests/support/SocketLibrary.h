// Starts the system's socket library for a test program, as an embedding process would.
#pragma once

namespace velmora {
namespace test {

// True when sockets can be used (always, except when Windows Sockets fails to start).
bool startSocketLibrary();

}  // namespace test
}  // namespace velmora
