#pragma once

#include "guard/descriptor.h"

#include <vector>

/// Passes on what children write to standard output and standard error. They write into pipes of
/// this process, not into the caller's files. So a child that survives this process does not keep
/// the caller waiting for the end of the output.
class OutputRelay
{
public:
    /// @return false when the pipes cannot be made
    bool open();

    /// For the child's standard output and standard error.
    int childOutput() const { return m_streams.front().childEnd.get(); }
    int childErrors() const { return m_streams.back().childEnd.get(); }

    /// Call it as soon as the child is started.
    void closeChildEnds();

    /// Passes on output until a descriptor becomes readable.
    void passOnUntil(int descriptor);

    /// Passes on the rest of the output after the child has ended.
    void passOnRest();

private:
    struct Stream {
        Descriptor childEnd;
        Descriptor ownEnd; ///< not open: there is no more output
        Descriptor target; ///< the caller's; not open: the caller has stopped reading
    };
    static bool passOnPiece(Stream *stream);

    std::vector<Stream> m_streams;
};
