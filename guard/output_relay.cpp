#include "guard/output_relay.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

namespace
{
/// @return true when both are the same file for the caller, as with 2>&1
bool outputAndErrorsAreOne()
{
    struct stat output;
    struct stat errors;
    return fstat(STDOUT_FILENO, &output) == 0 && fstat(STDERR_FILENO, &errors) == 0 &&
           output.st_dev == errors.st_dev && output.st_ino == errors.st_ino;
}
} // namespace

bool OutputRelay::open()
{
    std::vector<int> targets = {STDOUT_FILENO, STDERR_FILENO};
    if (outputAndErrorsAreOne()) {
        targets.pop_back();
    }
    for (const int target : targets) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0 || fcntl(ends[0], F_SETFL, O_NONBLOCK) != 0) {
            return false;
        }
        const int copy = fcntl(target, F_DUPFD_CLOEXEC, 0);
        m_streams.push_back({Descriptor(ends[1]), Descriptor(ends[0]), Descriptor(copy)});
    }
    return true;
}

void OutputRelay::closeChildEnds()
{
    for (Stream &stream : m_streams) {
        stream.childEnd.close();
    }
}

bool OutputRelay::passOnPiece(Stream *stream)
{
    char piece[8192];
    const ssize_t size = read(stream->ownEnd.get(), piece, sizeof piece);
    if (size > 0) {
        // If the caller has closed its end, the run must not end: the rest is read and dropped.
        if (stream->target.isOpen() && stream->target.writeAll(piece, size) != 0) {
            stream->target.close();
        }
        return true;
    }
    if (size == 0) {
        stream->ownEnd.close();
    }
    return size < 0 && errno == EINTR;
}

void OutputRelay::passOnUntil(int descriptor)
{
    for (;;) {
        std::vector<pollfd> sources = {{descriptor, POLLIN, 0}};
        for (const Stream &stream : m_streams) {
            // poll() ignores a descriptor of -1.
            sources.push_back({stream.ownEnd.get(), POLLIN, 0});
        }
        if (poll(sources.data(), sources.size(), -1) < 0) {
            continue;
        }
        for (size_t i = 0; i < m_streams.size(); ++i) {
            if (sources[i + 1].revents != 0) {
                passOnPiece(&m_streams[i]);
            }
        }
        if (sources[0].revents != 0) {
            return;
        }
    }
}

void OutputRelay::passOnRest()
{
    for (Stream &stream : m_streams) {
        while (passOnPiece(&stream)) {
        }
    }
}
