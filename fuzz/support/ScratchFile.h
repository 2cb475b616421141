// For fuzz targets that go through files: one file name per process, in memory-backed
// storage where the system has it, so that the flushes of a save cost no disk writes.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace velmora {
namespace fuzzing {

inline const std::string& scratchPath(const char* name) {
    struct stat st;
    static const std::string dir =
        ::stat("/dev/shm", &st) == 0 && S_ISDIR(st.st_mode) ? "/dev/shm" : "/tmp";
    static const std::string path =
        dir + "/velmora_fuzz_" + name + "_" + std::to_string(::getpid());
    return path;
}

inline bool writeScratch(const std::string& path, const uint8_t* data, size_t size) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr) return false;
    const bool ok = std::fwrite(data, 1, size, f) == size;
    return std::fclose(f) == 0 && ok;
}

}  // namespace fuzzing
}  // namespace velmora
