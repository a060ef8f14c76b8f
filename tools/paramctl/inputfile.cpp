// SPDX-License-Identifier: Apache-2.0
// ReadInputFile: reading a command-line file with every failure named.
#include "tools/paramctl/inputfile.h"

#include <cerrno>
#include <cstring>
#include <new>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ParamCtl {

namespace {

// Closes the descriptor on every path out of ReadInputFile.
class Descriptor
{
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    ~Descriptor()
    {
        if (m_fd >= 0)
            close(m_fd);
    }
    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;

    int Get() const { return m_fd; }

private:
    int m_fd;
};

} // namespace

bool ReadInputFile(std::string const& path, std::vector<unsigned char>& bytes, std::string& reason)
{
    bytes.clear();
    // O_NONBLOCK keeps a FIFO with no writer from blocking the open; it is refused below.
    Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (file.Get() < 0) {
        reason = std::strerror(errno);
        return false;
    }
    struct stat status = {};
    if (fstat(file.Get(), &status) != 0) {
        reason = std::strerror(errno);
        return false;
    }
    // Devices such as /dev/zero never end and pipes have no size: only regular files are read.
    if (S_ISDIR(status.st_mode)) {
        reason = "is a directory";
        return false;
    }
    if (!S_ISREG(status.st_mode)) {
        reason = "is not a regular file";
        return false;
    }
    auto const size = static_cast<unsigned long long>(status.st_size);
    if (size == 0) {
        reason = "is empty";
        return false;
    }
    if (size > MaxInputSize) {
        reason = "is too large (" + std::to_string(size) + " bytes; a tuning file holds at most " +
                 std::to_string(MaxInputSize) + ")";
        return false;
    }
    try {
        bytes.resize(static_cast<size_t>(size));
    } catch (std::bad_alloc const&) {
        reason = "cannot be held in memory (" + std::to_string(size) + " bytes)";
        return false;
    }
    size_t done = 0;
    while (done < bytes.size()) {
        ssize_t const got = read(file.Get(), bytes.data() + done, bytes.size() - done);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0) {
            reason = std::strerror(errno);
            return false;
        }
        if (got == 0) {
            // The file shrank while it was read: what is there is all there is.
            bytes.resize(done);
            break;
        }
        done += static_cast<size_t>(got);
    }
    if (bytes.empty()) {
        reason = "is empty";
        return false;
    }
    return true;
}

} // namespace ParamCtl
