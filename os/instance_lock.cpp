#include "os/instance_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace os {

bool InstanceLock::acquire(const std::string& path)
{
    if (fd_ >= 0)
        return true;
    int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0)
        return false;
    if (::flock(fd, LOCK_EX) != 0) {
        ::close(fd);
        return false;
    }
    fd_ = fd;
    return true;
}

void InstanceLock::release()
{
    if (fd_ < 0)
        return;
    ::flock(fd_, LOCK_UN);
    ::close(fd_);
    fd_ = -1;
}

} // namespace os
