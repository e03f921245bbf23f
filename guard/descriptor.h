#pragma once

#include <cerrno>
#include <poll.h>
#include <sys/types.h>
#include <unistd.h>
#include <utility>

/// Owns a file descriptor.
class Descriptor
{
public:
    /// @param number the result of `open`, negative for none
    explicit Descriptor(int number = -1) : m_number(number) {}
    ~Descriptor() { close(); }
    Descriptor(Descriptor &&other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept
    {
        close();
        m_number = std::exchange(other.m_number, -1);
        return *this;
    }

    bool isOpen() const { return m_number >= 0; }
    int get() const { return m_number; }

    /// @return 0; -1 with errno when the last writes were lost
    int close() { return m_number < 0 ? 0 : ::close(std::exchange(m_number, -1)); }

    /// Writes all bytes, however often the system writes only a part.
    /// @return 0 or the error number
    int writeAll(const char *data, ssize_t size) const
    {
        while (size > 0) {
            const ssize_t written = ::write(m_number, data, static_cast<size_t>(size));
            if (written > 0) {
                data += written;
                size -= written;
            } else if (written < 0 && errno == EAGAIN) {
                // The caller's file may be non-blocking.
                pollfd room = {m_number, POLLOUT, 0};
                poll(&room, 1, -1);
            } else if (written < 0 && errno != EINTR) {
                return errno;
            } else if (written == 0) {
                return EIO;
            }
        }
        return 0;
    }

private:
    int m_number;
};
