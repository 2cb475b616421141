// One daemon per home: a lock file held for the process's life. A second process that
// asks for the same lock learns which process holds it and changes nothing; the lock goes
// with its holder, also when the holder is killed.
//
//   velmorad::InstanceLock lock;
//   std::string why;
//   if (!lock.acquire("home/lib/velmorad.lock", &why)) puts(why.c_str());
#pragma once

#include <string>

namespace velmorad {

class InstanceLock {
public:
    InstanceLock() = default;
    ~InstanceLock();
    InstanceLock(const InstanceLock&) = delete;
    InstanceLock& operator=(const InstanceLock&) = delete;

    // Takes the lock and writes this process's id into the file. False with `why` naming
    // the holding process (or the reason the file cannot be had).
    bool acquire(const std::string& path, std::string* why);

private:
    long long handle_ = -1;
};

}  // namespace velmorad
