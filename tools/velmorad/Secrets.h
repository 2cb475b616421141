// What the daemon's token needs from the operating system: random bytes from the system's
// secure source, and a file that only the daemon's user (and the administrators) can read.
#pragma once

#include <cstddef>
#include <string>

namespace velmorad {

// Fills `out` with `size` bytes from the system's cryptographic random source (getrandom on
// Linux, BCryptGenRandom on Windows). False when the source fails; never a weaker fallback.
bool secureRandom(unsigned char* out, size_t size);

// Writes `text` to a new file beside `path` that only its owner may read and write (mode
// 0600; on Windows a protected ACL for the owner and the administrators), then renames it
// over `path`, so that readers see the old file or the new one, never a part. Run as root
// on POSIX, the file goes to the owner of its directory (the daemon's user). False with
// the reason in `why`.
bool writePrivateFile(const std::string& path, const std::string& text, std::string* why);

// False, with the reason in `why`, when others than the file's owner may read it.
bool isPrivateFile(const std::string& path, std::string* why);

}  // namespace velmorad
